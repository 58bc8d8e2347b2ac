// Requests to one WebDAV server, over a connection that is kept.
#pragma once

#include <curl/curl.h>

#include <string>

#include "core/config.h"
#include "curl_handle.h"
#include "webdav_exchange.h"

namespace TAVOCloud {

// Not for several threads at a time. Every path is absolute on the server and
// sendable (see IsSendablePath).
class WebDavSession {
 public:
  explicit WebDavSession(core::RemoteConfig remote);

  const core::RemoteConfig& remote() const { return remote_; }

  // Whom requests watch, and how patient they are.
  CurlHandle& curl() { return curl_; }

  // Logs in before the first request, sends it, and follows what points to another
  // place on the same server.
  WebDavAnswer Send(const WebDavRequest& request);
  // The whole URL of a path.
  std::string UrlOf(const std::string& path) const;

 private:
  [[nodiscard]] bool Prepare(const WebDavRequest& request, const std::string& url,
                             std::string* err);
  [[nodiscard]] bool PrepareLogin(std::string* err);
  void PrepareBody(const WebDavRequest& request);
  WebDavAnswer LogIn();
  WebDavAnswer Follow(const WebDavRequest& request);
  WebDavAnswer SendOnce(const WebDavRequest& request, const std::string& url, std::string* next);
  void Perform(WebDavAnswer* answer);
  [[nodiscard]] bool IsHere(const std::string& url, std::string* here) const;

  core::RemoteConfig remote_;
  std::string origin_;  // scheme, host and port
  std::string password_;
  bool have_password_ = false;
  unsigned long login_ways_;
  bool logged_in_ = false;
  bool served_ = false;
  CurlHandle curl_;
};

}  // namespace TAVOCloud
