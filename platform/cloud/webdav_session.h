// Requests to one WebDAV server, over a connection that is kept.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "core/config.h"
#include "flow.h"
#include "webdav_exchange.h"

namespace TAVOCloud {

// Not for several threads at a time. Every path is absolute on the server and
// sendable (see IsSendablePath).
class WebDavSession {
 public:
  explicit WebDavSession(core::RemoteConfig remote);

  const core::RemoteConfig& remote() const { return remote_; }

  // Requests end when `flow` is told to stop; null: they do not.
  void Watch(Flow* flow) { watched_ = flow; }
  Flow* watched() const { return watched_; }
  // Requests give up after a few seconds: for cleaning up after a stop.
  void Hurry(bool hurry) { hurry_ = hurry; }
  bool hurries() const { return hurry_; }

  // Logs in before the first request, sends it, and follows what points to another
  // place on the same server.
  WebDavAnswer Send(const WebDavRequest& request);
  // The whole URL of a path.
  std::string UrlOf(const std::string& path) const;

 private:
  struct CleanUp {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  };

  template <typename Value>
  void Set(CURLoption option, Value value);
  [[nodiscard]] bool Prepare(const std::string& url, std::string* err);
  void PreparePatience(bool slow);
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
  bool options_taken_ = true;
  bool hurry_ = false;
  Flow* watched_ = nullptr;
  std::unique_ptr<CURL, CleanUp> handle_;
};

}  // namespace TAVOCloud
