// Logging in and out.
#include <algorithm>

#include "bounds.h"
#include "envelope.h"
#include "flight.h"
#include "front.h"
#include "names.h"
#include "replies.h"
#include "secret_text.h"
#include "support/errors.h"

namespace host {
namespace {

constexpr std::string_view kBearer = "Bearer ";
// Names are keys of the count of guesses.
constexpr std::size_t kMaxName = 256;

// The token of the Authorization header, empty when there is none.
std::string BearerOf(const httplib::Request& request) {
  const std::string header = request.get_header_value("Authorization");
  return header.starts_with(kBearer) ? header.substr(kBearer.size()) : "";
}

void RefuseGuesses(httplib::Response& response) {
  response.set_header("Retry-After", std::to_string(LoginThrottle::kWindow.count()));
  Refuse(response, 429, WEBFM_BUSY, "too many failed logins; wait a minute");
}

}  // namespace

std::optional<Front::Identity> Front::Identify(const httplib::Request& request) {
  // A proxy's own kind of Authorization is none of ours.
  if (const std::string bearer = BearerOf(request); !bearer.empty()) {
    if (const auto user = tokens_.UserOf(bearer)) return Identity{*user, "", "token", false};
    const auto session = sessions_.Find(bearer, SessionKind::kBearer);
    if (!session) return std::nullopt;
    return Identity{session->user, "", session->name, false};
  }
  const auto session = sessions_.Find(CookieOf(request), SessionKind::kCookie);
  if (!session) return std::nullopt;
  return Identity{session->user, session->csrf, session->name, true};
}

void Front::RefuseLogin(const httplib::Request& request, httplib::Response& response, bool wrong) {
  if (wrong && throttle_.Failed(request.remote_addr)) {
    RefuseGuesses(response);
    return;
  }
  response.set_header("WWW-Authenticate", "Bearer");
  Refuse(response, 401, WEBFM_NO_PERMISSION, "not logged in");
}

std::string Front::StartSession(const std::string& user, SessionKind kind,
                                httplib::Response& response) {
  std::string secret = sessions_.Start(user, kind);
  if (secret.empty()) {
    Refuse(response, 503, WEBFM_BUSY, "no session can be started now");
  } else if (kind == SessionKind::kCookie) {
    SetCookie(response, secret, false);
  }
  return secret;
}

// The address can be used again, on purpose: its token is the one that STATE/token keeps for
// scripts, so whoever has read it needs no address, and its owner may open the page in a second
// browser. It is told on a terminal alone and in no log; a new one is made when the file is
// removed and the server started again.
void Front::LoginByAddress(const httplib::Request& request, httplib::Response& response) {
  const auto user = tokens_.UserOf(request.get_param_value("token"));
  if (!user) {
    RefuseLogin(request, response, true);
    return;
  }
  // The redirect keeps the token out of the browser's history.
  if (!StartSession(*user, SessionKind::kCookie, response).empty()) response.set_redirect("/", 303);
}

void Front::Login(const httplib::Request& request, httplib::Response& response, const Body& body) {
  Json::Value params;
  std::string err;
  if (!HostParameters(body, Fields{}, &params, &err)) {
    Refuse(response, 400, WEBFM_BAD_PARAMETER, err);
    return;
  }
  if (params.isMember("user") || params.isMember("password")) {
    LoginByPassword(request, response, params);
    return;
  }
  if (!params["token"].isString()) {
    Refuse(response, 400, WEBFM_BAD_PARAMETER,
           settings_.passwords ? "\"user\" and \"password\", or \"token\", are missing"
                               : "\"token\" is missing");
    return;
  }
  const auto user = tokens_.UserOf(params["token"].asString());
  if (!user) {
    RefuseLogin(request, response, true);
    return;
  }
  const std::string secret = StartSession(*user, SessionKind::kCookie, response);
  const auto session = sessions_.Find(secret, SessionKind::kCookie);
  if (session) WhoAmI(response, Identity{session->user, session->csrf, session->name, true});
}

void Front::LoginByPassword(const httplib::Request& request, httplib::Response& response,
                            const Json::Value& params) {
  const auto user = CheckPassword(request, response, params);
  if (!user) return;
  // A script asks for a bearer, which no browser ever sends by itself.
  const Json::Value& bearer = params["bearer"];
  if (bearer.isBool() && bearer.asBool()) {
    const std::string secret = StartSession(*user, SessionKind::kBearer, response);
    if (secret.empty()) return;
    Json::Value data(Json::objectValue);
    data["user"] = *user;
    data["token"] = secret;
    Reply(response, 200, SuccessText(data));
    return;
  }
  const std::string secret = StartSession(*user, SessionKind::kCookie, response);
  const auto session = sessions_.Find(secret, SessionKind::kCookie);
  if (session) WhoAmI(response, Identity{session->user, session->csrf, session->name, true});
}

std::optional<std::string> Front::CheckPassword(const httplib::Request& request,
                                                httplib::Response& response,
                                                const Json::Value& params) {
  if (!settings_.passwords) {
    Refuse(response, 400, WEBFM_BAD_PARAMETER, "this server has no passwords; log in by token");
    return std::nullopt;
  }
  if (!params["user"].isString() || !params["password"].isString() ||
      params["user"].asString().size() > kMaxName) {
    Refuse(response, 400, WEBFM_BAD_PARAMETER, "\"user\" and \"password\" are needed, as texts");
    return std::nullopt;
  }
  const std::string name = params["user"].asString();
  const SecretText password(params["password"].asString());
  if (throttle_.Blocked(request.remote_addr) || guessed_.Blocked(name)) {
    RefuseGuesses(response);
    return std::nullopt;
  }
  const Flight flight(&logins_, kMaxLogins);
  if (!flight.admitted()) {
    response.set_header("Retry-After", "2");
    Refuse(response, 429, WEBFM_BUSY, "too many logins at once; try again");
    return std::nullopt;
  }
  const LoginAnswer answer = launcher_.LogIn(name, request.remote_addr, password);
  switch (answer.result) {
    case LoginResult::kGranted:
      return answer.user;
    case LoginResult::kExpired:
      Refuse(response, 401, WEBFM_NO_PERMISSION,
             "the password has expired; change it on the server first");
      return std::nullopt;
    case LoginResult::kDenied:
      static_cast<void>(throttle_.Failed(request.remote_addr));
      static_cast<void>(guessed_.Failed(name));
      Refuse(response, 401, WEBFM_NO_PERMISSION, "the user name or the password is wrong");
      return std::nullopt;
    case LoginResult::kFailed:
      break;
  }
  static_cast<void>(throttle_.Failed(request.remote_addr));
  Refuse(response, 503, WEBFM_BUSY, "passwords cannot be checked now; the server's log says why");
  return std::nullopt;
}

void Front::WaysToLogIn(httplib::Response& response) const {
  Json::Value data(Json::objectValue);
  data["password"] = settings_.passwords;
  data["token"] = !tokens_.empty();
  Reply(response, 200, SuccessText(data));
}

void Front::Logout(const httplib::Request& request, httplib::Response& response,
                   const Json::Value& params, const Identity& caller) {
  const Json::Value& all = params["all"];
  if (!all.isNull() && !all.isBool()) {
    Refuse(response, 400, WEBFM_BAD_PARAMETER, "\"all\" must be true or false");
    return;
  }
  const bool everywhere = all.isBool() && all.asBool();
  const std::string bearer = BearerOf(request);
  if (everywhere ? !sessions_.EndAll(caller.user)
                 : !sessions_.End(bearer.empty() ? CookieOf(request) : bearer)) {
    Refuse(response, 503, WEBFM_BUSY, "the session could not be ended; try again");
    return;
  }
  if (bearer.empty()) SetCookie(response, "", true);
  Reply(response, 200, SuccessText(Json::Value()));
}

void Front::WhoAmI(httplib::Response& response, const Identity& caller) const {
  Json::Value data(Json::objectValue);
  data["user"] = caller.user;
  data["csrf"] = caller.csrf;
  data["login"] = caller.by_cookie ? "cookie" : "token";
  data["several_users"] = settings_.several_users;
  data["version"] = FENNOX_VERSION;
  Reply(response, 200, SuccessText(data));
}

std::string Front::CookieOf(const httplib::Request& request) const {
  return CookieValue(request.get_header_value("Cookie"), cookie_name_);
}

void Front::SetCookie(httplib::Response& response, const std::string& value, bool gone) const {
  response.set_header("Set-Cookie", cookie_name_ + "=" + value +
                                        "; Path=/; HttpOnly; SameSite=Strict" +
                                        (secure() ? "; Secure" : "") + (gone ? "; Max-Age=0" : ""));
}

}  // namespace host
