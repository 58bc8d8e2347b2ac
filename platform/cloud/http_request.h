// Requests over HTTP, on connections that are kept.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/config.h"
#include "curl_handle.h"

namespace TAVOCloud {

// `response` is the HTTP status.
struct HttpAnswer : Outcome {
  long retry_after = 0;                        // seconds
  std::map<std::string, std::string> headers;  // by their names in lower case
  std::string text;                            // the body, unless `take` has got it

  bool Succeeded() const { return ok() && response >= 200 && response < 300; }
  // Empty when there is none. `name` in lower case.
  std::string Header(const std::string& name) const;
};

// Who asks, and in which ways the server may be told (CURLAUTH_…).
struct HttpLogin {
  std::string user;
  std::string password;
  unsigned long ways = 0;
};

struct HttpRequest {
  std::string method = "POST";
  std::string url;
  std::vector<std::string> headers;  // "Name: value"
  std::string_view body;             // stays where it is until the request has ended
  Flow* upload = nullptr;            // gives the body instead
  // Gets the body of an answer that says success, piece by piece. False ends the request.
  std::function<bool(const HttpAnswer& begun, std::string_view data)> take;
  bool slow = false;  // the server may work on it for long before it answers
};

// Not for several threads at a time. Follows no redirection.
class HttpClient {
 public:
  // Of the remote only the patience and the trust are used.
  explicit HttpClient(const core::RemoteConfig& remote);

  CurlHandle& curl() { return curl_; }

  // For the requests from now on; without it nobody is named.
  void LogInAs(HttpLogin login) { login_ = std::move(login); }

  HttpAnswer Send(const HttpRequest& request);

 private:
  void ForgetLastAnswer();
  void Prepare(const HttpRequest& request);
  void PrepareBody(const HttpRequest& request);

  std::string ca_file_;
  int connect_timeout_;
  HttpLogin login_;
  CurlHandle curl_;
};

}  // namespace TAVOCloud
