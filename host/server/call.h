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
  // What came as the request's body, when that is to be a JSON object. Only a request process
  // reads it: there a hostile one harms nobody, and a long one is read once.
  std::string body;
};

// The last byte of what a request process sends back, behind the envelope's text.
enum class AnswerKind : char {
  kAnswer = 'A',
  kUnreadable = 'U',  // the call, or its body, could not be read
};

// True for a call that only reads its user's records. It leaves nothing in its process, which
// may then serve this user's next one. The plug-in's method for that is "status".
[[nodiscard]] bool OnlyReadsRecords(const Call& call);

std::string EncodeCall(const Call& call);

// False, with words in *err, when `text` is no call. The body is left as it came.
[[nodiscard]] bool DecodeCall(const std::string& text, Call* out, std::string* err);

// Moves the members of the JSON object `body` to *params, where they win over those of the
// same name. False, with words in *err, when it is none.
[[nodiscard]] bool AddMembers(const std::string& body, Json::Value* params, std::string* err);

}  // namespace host
