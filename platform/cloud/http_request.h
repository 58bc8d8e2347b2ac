// POST requests over HTTP, on connections that are kept.
#pragma once

#include <curl/curl.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "connection.h"
#include "flow.h"

namespace TAVOCloud {

// `response` is the HTTP status.
struct HttpAnswer : Outcome {
  long retry_after = 0;                        // seconds
  std::map<std::string, std::string> headers;  // by their names in lower case
  std::string text;                            // the body, unless `take` has got it

  bool Succeeded() const { return ok() && response >= 200 && response < 300; }
};

struct HttpRequest {
  std::string url;
  std::vector<std::string> headers;  // "Name: value"
  std::string_view body;             // stays where it is until the request has ended
  // Gets the body of an answer that says success, piece by piece. False ends the request.
  std::function<bool(const HttpAnswer& begun, std::string_view data)> take;
  bool slow = false;  // the server may work on it for long before it answers
};

// Not for several threads at a time. Follows no redirection.
class HttpClient {
 public:
  // `ca_file`: the certificates to trust, empty for those of the system.
  explicit HttpClient(std::string ca_file);

  // Requests end when `flow` is told to stop; null: they do not.
  void Watch(Flow* flow) { watched_ = flow; }
  Flow* watched() const { return watched_; }
  // Requests give up after a few seconds: for cleaning up after a stop.
  void Hurry(bool hurry) { hurry_ = hurry; }
  bool hurries() const { return hurry_; }

  HttpAnswer Post(const HttpRequest& request);

 private:
  struct CleanUp {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  };

  template <typename Value>
  void Set(CURLoption option, Value value);
  void Prepare(const HttpRequest& request);
  void PreparePatience(bool slow);
  void Perform(HttpAnswer* answer);

  std::string ca_file_;
  bool options_taken_ = true;
  bool hurry_ = false;
  Flow* watched_ = nullptr;
  std::unique_ptr<CURL, CleanUp> handle_;
};

}  // namespace TAVOCloud
