// The HTTP front: sessions, the page, JSON. Never touches users' files.
#pragma once

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "call.h"
#include "http_server.h"
#include "launcher_link.h"
#include "login_throttle.h"
#include "metrics.h"
#include "parameters.h"
#include "sessions.h"
#include "tokens.h"
#include "user_limits.h"

namespace host {

struct FrontSettings {
  std::string address;  // where to listen
  int port = 0;         // 0: any free one
  std::string certificate;
  std::string key;
  bool several_users = false;
  bool passwords = false;  // logins with system accounts
  std::chrono::seconds session_idle{0};
  std::chrono::seconds session_life{0};
  ConnectionLimits connection;
  int requests_per_second = 200;  // of one user
  int requests_at_once = 32;      // of one user
  std::string metrics_address;    // empty: no figures are served
  int metrics_port = 0;
};

class Front {
 public:
  Front(FrontSettings settings, Tokens tokens, const LauncherLink& launcher);
  ~Front();

  // False, with words in *err, when the address or the certificate cannot be used.
  [[nodiscard]] bool Bind(std::string* err);
  int port() const { return port_; }
  bool secure() const { return !settings_.certificate.empty(); }

  // Opens the store of sessions in `folder`; call once, before Serve.
  [[nodiscard]] bool OpenSessions(const std::string& folder, std::string* err);

  // Serves until Stop, which any thread may call.
  void Serve();
  void Stop();

 private:
  // Who asks, and how they said so.
  struct Identity {
    std::string user;
    std::string csrf;
    std::string session;
    bool by_cookie = false;
  };

  void SetUpServer();
  [[nodiscard]] bool BindMetrics(std::string* err);
  void ServeMetrics(httplib::Response& response);
  void Get(const httplib::Request& request, httplib::Response& response);
  void Post(const httplib::Request& request, httplib::Response& response,
            const httplib::ContentReader& reader);
  // True when the request was answered: it came for another site's name.
  bool RefuseForeignHost(const httplib::Request& request, httplib::Response& response) const;
  // The same for a page of another site, as far as the browser tells.
  static bool RefuseForeignPage(const httplib::Request& request, httplib::Response& response);
  // The caller, or an answer that says why not.
  std::optional<Identity> Admit(const httplib::Request& request, httplib::Response& response);
  std::optional<Identity> Identify(const httplib::Request& request);
  void Serve(const httplib::Request& request, httplib::Response& response, const Body& body,
             const Identity& caller);
  void ServeApi(const httplib::Request& request, httplib::Response& response, const Body& body,
                const Identity& caller);
  void ServeHost(const httplib::Request& request, httplib::Response& response, const Body& body,
                 const Identity& caller);
  void Run(const Call& call, httplib::Response& response);
  void LoginByAddress(const httplib::Request& request, httplib::Response& response);
  void Login(const httplib::Request& request, httplib::Response& response, const Body& body);
  void LoginByPassword(const httplib::Request& request, httplib::Response& response,
                       const Json::Value& params);
  // The user whom PAM let in, or an answer that says why not.
  std::optional<std::string> CheckPassword(const httplib::Request& request,
                                           httplib::Response& response, const Json::Value& params);
  void WaysToLogIn(httplib::Response& response) const;
  void Logout(const httplib::Request& request, httplib::Response& response,
              const Json::Value& params, const Identity& caller);
  void WhoAmI(httplib::Response& response, const Identity& caller) const;
  void RefuseLogin(const httplib::Request& request, httplib::Response& response, bool wrong);
  // The new session's secret; empty when it was answered that there is none.
  std::string StartSession(const std::string& user, SessionKind kind, httplib::Response& response);
  std::string CookieOf(const httplib::Request& request) const;
  void SetCookie(httplib::Response& response, const std::string& value, bool gone) const;

  FrontSettings settings_;
  Tokens tokens_;
  const LauncherLink& launcher_;
  Sessions sessions_;
  LoginThrottle throttle_;  // by address
  LoginThrottle guessed_;   // by name
  std::atomic<int> logins_{0};
  std::atomic<int> in_flight_{0};
  UserLimits limits_;
  RequestFigures figures_;
  std::unique_ptr<HttpServer> server_;
  std::unique_ptr<HttpServer> metrics_server_;
  std::thread metrics_thread_;
  int port_ = 0;
  std::string cookie_name_;
};

}  // namespace host
