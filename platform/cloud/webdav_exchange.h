// One request to a WebDAV server and what comes back.
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <string>
#include <vector>

#include "curl_handle.h"
#include "flow.h"

namespace TAVOCloud {

// What a server says to tell one state of a file from another.
struct FileVersion {
  std::string etag;
  std::string modified;

  bool IsKnown() const { return !etag.empty() || !modified.empty(); }
  // Whether the server itself can compare it byte for byte.
  bool IsStrong() const { return !etag.empty() && etag[0] == '"'; }
};

bool IsSameVersion(const FileVersion& one, const FileVersion& other);

struct WebDavRequest {
  std::string method;
  std::string path;                  // on the server, not encoded
  std::vector<std::string> headers;  // "Name: value"
  std::string body;
  Flow* upload = nullptr;    // gives the body instead
  Flow* download = nullptr;  // gets the file's data, from `offset` on
  std::uint64_t offset = 0;
  FileVersion version;  // of the file whose first part has come already
  bool slow = false;    // the server may work on it for long before it answers
};

// `response` is the HTTP status.
struct WebDavAnswer : Outcome {
  bool changed = false;   // the file is not the one that was asked for
  bool unserved = false;  // no request has been served over its connection yet
  FileVersion version;
  long retry_after = 0;  // seconds
  std::string text;      // the body, unless a flow has got it

  bool Succeeded() const { return ok() && response >= 200 && response < 300; }
};

// Takes an answer as it comes in, and lets data through to the flow only when it is
// that of the file and the place that were asked for.
class WebDavExchange {
 public:
  WebDavExchange(CURL* handle, const WebDavRequest& request, WebDavAnswer* answer)
      : handle_(handle), request_(request), answer_(answer) {}

  // For CURLOPT_HEADERFUNCTION and CURLOPT_WRITEFUNCTION, with the exchange as
  // their pointer.
  static std::size_t OnHeader(char* data, std::size_t one, std::size_t length, void* exchange);
  static std::size_t OnBody(char* data, std::size_t one, std::size_t length, void* exchange);

 private:
  void TakeHeader(std::string line);
  [[nodiscard]] bool TakeBody(const char* data, std::size_t length);
  [[nodiscard]] bool IsWanted(long status);
  bool Refuse(const char* words);

  CURL* handle_;
  const WebDavRequest& request_;
  WebDavAnswer* answer_;
  std::string range_;
  bool wanted_ = false;
};

}  // namespace TAVOCloud
