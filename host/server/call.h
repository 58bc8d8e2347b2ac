// One request on its way from the front to a request process.
#pragma once

#include <json/value.h>

#include <string>

namespace host {

struct Call {
  std::string api;  // a plug-in's web API; empty: one of the host's own calls
  std::string method;
  int version = 0;
  std::string user;
  std::string session;   // a name for the session, not its secret
  std::string language;  // three-letter code
  Json::Value params = Json::Value(Json::objectValue);
};

// True for a call that only reads its user's records. It leaves nothing in its process, which
// may then serve this user's next one. The plug-in's method for that is "status".
[[nodiscard]] bool OnlyReadsRecords(const Call& call);

std::string EncodeCall(const Call& call);

// False, with words in *err, when `text` is no call.
[[nodiscard]] bool DecodeCall(const std::string& text, Call* out, std::string* err);

}  // namespace host
