// The HTTP front: sessions, the page, JSON. Never touches users' files.
#pragma once

#include <httplib.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "call.h"
#include "launcher_link.h"
#include "login_throttle.h"
#include "parameters.h"
#include "sessions.h"
#include "tokens.h"

namespace host {

struct FrontSettings {
  std::string address;  // where to listen
  int port = 0;         // 0: any free one
  std::string certificate;
  std::string key;
  bool several_users = false;
};

class Front {
 public:
  Front(FrontSettings settings, Tokens tokens, const LauncherLink& launcher);
  ~Front();

  // False, with words in *err, when the address or the certificate cannot be used.
  [[nodiscard]] bool Bind(std::string* err);
  int port() const { return port_; }
  bool secure() const { return !settings_.certificate.empty(); }

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
  void Get(const httplib::Request& request, httplib::Response& response);
  void Post(const httplib::Request& request, httplib::Response& response,
            const httplib::ContentReader& reader);
  // True when the request was answered: it came for another site's name.
  bool RefuseForeignHost(const httplib::Request& request, httplib::Response& response) const;
  // The caller, or an answer that says why not.
  std::optional<Identity> Admit(const httplib::Request& request, httplib::Response& response);
  std::optional<Identity> Identify(const httplib::Request& request) const;
  void Serve(const httplib::Request& request, httplib::Response& response, const Body& body,
             const Identity& caller);
  void ServeApi(const httplib::Request& request, httplib::Response& response, const Body& body,
                const Identity& caller);
  void ServeHost(const httplib::Request& request, httplib::Response& response, const Body& body,
                 const Identity& caller);
  void Run(const Call& call, httplib::Response& response);
  void LoginByAddress(const httplib::Request& request, httplib::Response& response);
  void Login(const httplib::Request& request, httplib::Response& response, const Body& body);
  void Logout(const httplib::Request& request, httplib::Response& response);
  void WhoAmI(httplib::Response& response, const Identity& caller) const;
  void RefuseLogin(const httplib::Request& request, httplib::Response& response, bool wrong);
  bool StartSession(const std::string& user, httplib::Response& response, std::string* cookie);
  std::string CookieOf(const httplib::Request& request) const;
  void SetCookie(httplib::Response& response, const std::string& value, bool gone) const;

  FrontSettings settings_;
  Tokens tokens_;
  const LauncherLink& launcher_;
  mutable Sessions sessions_;
  LoginThrottle throttle_;
  std::atomic<int> in_flight_{0};
  std::unique_ptr<httplib::Server> server_;
  int port_ = 0;
  std::string cookie_name_;
};

}  // namespace host
