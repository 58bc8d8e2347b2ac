// Calls of Dropbox's HTTP API for one account.
#pragma once

#include <json/json.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/config.h"
#include "flow.h"
#include "http_request.h"

namespace TAVOCloud {

// How a call ended.
struct DropboxAnswer : HttpAnswer {
  Json::Value result;             // of a call that succeeded
  Json::Value error;              // of one that the service refused
  std::vector<std::string> tags;  // the error's, from the outermost to the innermost
  std::string call;

  bool Says(std::string_view tag) const;
};

// A member of an object, of the type asked for; nothing where there is none.
std::string TextIn(const Json::Value& object, const char* name);
std::uint64_t NumberIn(const Json::Value& object, const char* name);

// Reads a text that must be one JSON value; null when it is none.
Json::Value ReadJson(const std::string& text);

// The token file is JSON, with the texts "refresh_token" and "app_key", and
// "app_secret" unless the app was linked without one. The access token that they are
// exchanged for stays in memory, and is exchanged anew when the service says that it
// has expired.
//
// The addresses are those of the service, over https. With a `host` in the
// configuration everything is asked of that one, over https too; plain http is spoken
// only to a loopback address without a `ca_file`.
//
// Not for several threads at a time.
class DropboxApi {
 public:
  explicit DropboxApi(core::RemoteConfig remote);

  const core::RemoteConfig& remote() const { return remote_; }
  CurlHandle& curl() { return client_.curl(); }

  // `call` is an endpoint's name such as "files/get_metadata".
  DropboxAnswer Ask(const std::string& call, const Json::Value& argument, bool slow = false);
  // With the data of a file as the body.
  DropboxAnswer Send(const std::string& call, const Json::Value& argument, std::string_view data);
  // Gives the data of a file, from `offset` on, to `take`; the header
  // "dropbox-api-result" tells what file that is.
  DropboxAnswer Fetch(const Json::Value& argument, std::uint64_t offset,
                      std::function<bool(const HttpAnswer& begun, std::string_view data)> take);

 private:
  std::string UrlOf(const char* service, const std::string& path) const;
  DropboxAnswer Authorized(const std::string& call, HttpRequest request);
  DropboxAnswer LogIn();

  core::RemoteConfig remote_;
  HttpClient client_;
  std::string access_token_;
};

}  // namespace TAVOCloud
