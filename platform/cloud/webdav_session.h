// Requests to one WebDAV server, over a connection that is kept.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/config.h"
#include "http_request.h"

namespace TAVOCloud {

struct WebDavAnswer : HttpAnswer {
  bool changed = false;   // the file is not the one that was asked for
  bool unserved = false;  // no request has been served over its connection yet
};

// Not for several threads at a time. Every path is absolute on the server and
// sendable (see IsSendablePath).
class WebDavSession {
 public:
  explicit WebDavSession(core::RemoteConfig remote);

  const core::RemoteConfig& remote() const { return remote_; }

  // Whom requests watch, and how patient they are.
  CurlHandle& curl() { return client_.curl(); }

  // A request about a path, to be sent.
  HttpRequest RequestFor(const char* method, const std::string& path) const;
  // Logs in before the first request, sends it, and follows what points to another
  // place on the same server.
  WebDavAnswer Send(const HttpRequest& request);
  // The whole URL of a path.
  std::string UrlOf(const std::string& path) const;

 private:
  WebDavAnswer LogIn();
  WebDavAnswer Follow(HttpRequest request);
  WebDavAnswer SendOnce(const HttpRequest& request);
  [[nodiscard]] bool IsHere(const std::string& url, std::string* here) const;

  core::RemoteConfig remote_;
  std::string origin_;  // scheme, host and port
  bool logged_in_;
  bool served_ = false;
  HttpClient client_;
};

}  // namespace TAVOCloud
