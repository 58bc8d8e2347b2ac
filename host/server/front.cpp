#include "front.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <charconv>
#include <cstring>

#include "bounds.h"
#include "envelope.h"
#include "host_calls.h"
#include "http_server.h"
#include "names.h"
#include "page.h"
#include "support/errors.h"
#include "webapi_runtime/api_request.h"

namespace host {
namespace {

constexpr const char* kJson = "application/json";
constexpr const char* kApiPrefix = "/webapi/";
constexpr const char* kHostPrefix = "/host/";
constexpr const char* kVersion = "0.1.0";

void Reply(httplib::Response& response, int status, const std::string& text) {
  response.status = status;
  response.set_content(text, kJson);
}

void Refuse(httplib::Response& response, int status, int code, const char* message) {
  Reply(response, status, FailureWords(code, message));
}

int NumberOr(const std::string& text, int fallback) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : fallback;
}

// A field of the request itself, from its query or its form.
std::string OwnField(const httplib::Request& request, const Body& body, const char* name) {
  const std::string text = Field(QueryFields(request), name);
  return text.empty() ? Field(body.fields, name) : text;
}

// One of the requests that a request process serves at this moment.
class Flight {
 public:
  explicit Flight(std::atomic<int>* count) : count_(count), number_(++*count) {}
  ~Flight() { --*count_; }
  Flight(const Flight&) = delete;
  Flight& operator=(const Flight&) = delete;
  bool admitted() const { return number_ <= kMaxInFlight; }

 private:
  std::atomic<int>* count_;
  int number_;
};

// Answers that the HTTP library gives by itself get an envelope too.
void FillBareAnswer(const httplib::Request&, httplib::Response& response) {
  if (!response.body.empty()) return;
  switch (response.status) {
    case 404:
      Refuse(response, 404, WEBFM_UNKNOWN_METHOD, "there is nothing here");
      return;
    case 413:
      Refuse(response, 413, WEBFM_BAD_PARAMETER, "the request is larger than 8 MiB");
      return;
    case 414:
      Refuse(response, 414, WEBFM_BAD_PARAMETER, "the address is too long; use POST");
      return;
    default:
      Refuse(response, response.status, WEBFM_BAD_PARAMETER, "the request cannot be read");
      return;
  }
}

}  // namespace

Front::Front(FrontSettings settings, Tokens tokens, const LauncherLink& launcher)
    : settings_(std::move(settings)), tokens_(std::move(tokens)), launcher_(launcher) {}

Front::~Front() = default;

bool Front::Bind(std::string* err) {
  server_ = MakeHttpServer(settings_.certificate, settings_.key, err);
  if (!server_) return false;
  SetUpServer();
  port_ = BindHttpServer(*server_, settings_.address, settings_.port);
  if (port_ < 0) {
    *err = "cannot listen on " + settings_.address + ":" + std::to_string(settings_.port) + ": " +
           ::strerror(errno);
    return false;
  }
  // Browsers share cookies among the ports of a host; several servers must not.
  cookie_name_ = "fennox_" + std::to_string(port_);
  return true;
}

void Front::SetUpServer() {
  server_->set_default_headers(
      {{"X-Content-Type-Options", "nosniff"},
       {"Cache-Control", "no-store"},
       {"Referrer-Policy", "no-referrer"},
       {"Cross-Origin-Resource-Policy", "same-origin"},
       {"Content-Security-Policy",
        "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
        "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"}});
  server_->set_error_handler(FillBareAnswer);
  server_->set_exception_handler(
      [](const httplib::Request&, httplib::Response& response, const std::exception_ptr&) {
        Refuse(response, 500, WEBFM_FAILED, "the server failed on this request");
      });
  server_->Get(".*", [this](const auto& request, auto& response) { Get(request, response); });
  server_->Post(".*", [this](const auto& request, auto& response, const auto& reader) {
    Post(request, response, reader);
  });
}

void Front::Serve() { server_->listen_after_bind(); }

void Front::Stop() { server_->stop(); }

void Front::Get(const httplib::Request& request, httplib::Response& response) {
  if (RefuseForeignHost(request, response)) return;
  if (request.path == "/" && request.has_param("token")) {
    LoginByAddress(request, response);
    return;
  }
  if (const PageFile* file = FindPageFile(request.path); file != nullptr) {
    response.status = 200;
    response.set_content(file->content.data(), file->content.size(), file->type);
    return;
  }
  if (const auto caller = Admit(request, response)) Serve(request, response, Body{}, *caller);
}

void Front::Post(const httplib::Request& request, httplib::Response& response,
                 const httplib::ContentReader& reader) {
  const bool login = request.path == "/host/login";
  std::optional<Identity> caller;
  const bool foreign = RefuseForeignHost(request, response);
  if (!foreign && !login) caller = Admit(request, response);
  if (foreign || (!login && !caller)) {
    // The library writes a status of its own when the body is broken.
    const int status = response.status;
    DropBody(request, reader);
    response.status = status;
    return;
  }
  Body body;
  switch (ReadBody(request, reader, &body)) {
    case BodyStatus::kTooLarge:
      Refuse(response, 413, WEBFM_BAD_PARAMETER, "the request is larger than 8 MiB");
      return;
    case BodyStatus::kBroken:
      Refuse(response, 400, WEBFM_BAD_PARAMETER, "the body cannot be read");
      return;
    case BodyStatus::kOk:
      break;
  }
  if (login) {
    Login(request, response, body);
  } else {
    Serve(request, response, body, *caller);
  }
}

bool Front::RefuseForeignHost(const httplib::Request& request, httplib::Response& response) const {
  // A page of another site may have its name resolve to this machine; its requests
  // carry that name. Only a server on loopback knows all of its own names.
  if (!IsLoopbackName(settings_.address)) return false;
  const std::string name = HostOf(request.get_header_value("Host"));
  if (IsLoopbackName(name) || name == settings_.address) return false;
  Refuse(response, 403, WEBFM_NO_PERMISSION, "the Host header names another server");
  return true;
}

std::optional<Front::Identity> Front::Identify(const httplib::Request& request) const {
  constexpr std::string_view kBearer = "Bearer ";
  const std::string header = request.get_header_value("Authorization");
  if (header.compare(0, kBearer.size(), kBearer) == 0) {
    const auto user = tokens_.UserOf(header.substr(kBearer.size()));
    if (!user) return std::nullopt;
    return Identity{*user, "", "token", false};
  }
  const auto session = sessions_.Find(CookieOf(request));
  if (!session) return std::nullopt;
  return Identity{session->user, session->csrf, session->name, true};
}

std::optional<Front::Identity> Front::Admit(const httplib::Request& request,
                                            httplib::Response& response) {
  auto caller = Identify(request);
  if (!caller) {
    RefuseLogin(request, response, request.has_header("Authorization"));
    return std::nullopt;
  }
  // What may change something needs the token that only this server's own page can read;
  // plug-in methods are served by GET too.
  const bool changing = request.method == "POST" || request.path.rfind(kApiPrefix, 0) == 0;
  if (caller->by_cookie && changing &&
      !SameSecret(request.get_header_value("X-CSRF-Token"), caller->csrf)) {
    Refuse(response, 403, WEBFM_NO_PERMISSION, "the X-CSRF-Token header is missing or wrong");
    return std::nullopt;
  }
  return caller;
}

void Front::RefuseLogin(const httplib::Request& request, httplib::Response& response, bool wrong) {
  if (wrong && throttle_.Failed(request.remote_addr)) {
    response.set_header("Retry-After", std::to_string(LoginThrottle::kWindow.count()));
    Refuse(response, 429, WEBFM_BUSY, "too many failed logins; wait a minute");
    return;
  }
  response.set_header("WWW-Authenticate", "Bearer");
  Refuse(response, 401, WEBFM_NO_PERMISSION, "not logged in");
}

void Front::Serve(const httplib::Request& request, httplib::Response& response, const Body& body,
                  const Identity& caller) {
  if (request.path == "/webapi") {
    Reply(response, 200, SuccessText(launcher_.rows()));
  } else if (request.path.rfind(kApiPrefix, 0) == 0) {
    ServeApi(request, response, body, caller);
  } else if (request.path.rfind(kHostPrefix, 0) == 0) {
    ServeHost(request, response, body, caller);
  } else {
    Refuse(response, 404, WEBFM_UNKNOWN_METHOD, "there is nothing here");
  }
}

void Front::ServeApi(const httplib::Request& request, httplib::Response& response, const Body& body,
                     const Identity& caller) {
  Call call;
  call.api = request.path.substr(std::strlen(kApiPrefix));
  call.method = OwnField(request, body, "method");
  call.version = NumberOr(OwnField(request, body, "version"), -1);
  if (!launcher_.Serves(call.api, call.version, call.method)) {
    Refuse(response, 404, WEBFM_UNKNOWN_METHOD, "there is no such API, version or method");
    return;
  }
  call.user = caller.user;
  call.session = caller.session;
  call.language = webapi::LanguageFromHeader(request.get_header_value("Accept-Language"));
  std::string err;
  if (!Parameters(body, QueryFields(request), &call.params, &err)) {
    Reply(response, 400, FailureWords(WEBFM_BAD_PARAMETER, err));
    return;
  }
  Run(call, response);
}

void Front::ServeHost(const httplib::Request& request, httplib::Response& response,
                      const Body& body, const Identity& caller) {
  Call call;
  call.method = request.path.substr(std::strlen(kHostPrefix));
  if (call.method == "whoami") {
    WhoAmI(response, caller);
    return;
  }
  if (call.method == "logout" && request.method == "POST") {
    Logout(request, response);
    return;
  }
  if (!IsHostCall(call.method)) {
    Refuse(response, 404, WEBFM_UNKNOWN_METHOD, "there is no such call");
    return;
  }
  call.user = caller.user;
  call.session = caller.session;
  std::string err;
  if (!HostParameters(body, QueryFields(request), &call.params, &err)) {
    Reply(response, 400, FailureWords(WEBFM_BAD_PARAMETER, err));
    return;
  }
  Run(call, response);
}

void Front::Run(const Call& call, httplib::Response& response) {
  const Flight flight(&in_flight_);
  if (!flight.admitted()) {
    response.set_header("Retry-After", "1");
    Refuse(response, 429, WEBFM_BUSY, "too many requests at once");
    return;
  }
  std::string answer;
  switch (launcher_.Execute(call, &answer)) {
    case Outcome::kAnswered:
      Reply(response, 200, answer);
      return;
    case Outcome::kDied:
      Refuse(response, 500, WEBFM_FAILED, "the request process ended without an answer");
      return;
    case Outcome::kTimeout:
      Refuse(response, 500, WEBFM_FAILED, "the request took too long");
      return;
    case Outcome::kNoProcess:
      Refuse(response, 503, WEBFM_BUSY, "no process could be started for this request");
      return;
  }
}

bool Front::StartSession(const std::string& user, httplib::Response& response,
                         std::string* cookie) {
  *cookie = sessions_.Start(user);
  if (cookie->empty()) {
    Refuse(response, 503, WEBFM_BUSY, "no session can be started now");
    return false;
  }
  SetCookie(response, *cookie, false);
  return true;
}

void Front::LoginByAddress(const httplib::Request& request, httplib::Response& response) {
  const auto user = tokens_.UserOf(request.get_param_value("token"));
  if (!user) {
    RefuseLogin(request, response, true);
    return;
  }
  // The redirect keeps the token out of the browser's history.
  std::string cookie;
  if (StartSession(*user, response, &cookie)) response.set_redirect("/", 303);
}

void Front::Login(const httplib::Request& request, httplib::Response& response, const Body& body) {
  Json::Value params;
  std::string err;
  if (!HostParameters(body, Fields{}, &params, &err) || !params["token"].isString()) {
    Refuse(response, 400, WEBFM_BAD_PARAMETER, "\"token\" is missing");
    return;
  }
  const auto user = tokens_.UserOf(params["token"].asString());
  if (!user) {
    RefuseLogin(request, response, true);
    return;
  }
  std::string cookie;
  if (!StartSession(*user, response, &cookie)) return;
  const auto session = sessions_.Find(cookie);
  if (session) WhoAmI(response, Identity{session->user, session->csrf, session->name, true});
}

void Front::Logout(const httplib::Request& request, httplib::Response& response) {
  sessions_.End(CookieOf(request));
  SetCookie(response, "", true);
  Reply(response, 200, SuccessText(Json::Value()));
}

void Front::WhoAmI(httplib::Response& response, const Identity& caller) const {
  Json::Value data(Json::objectValue);
  data["user"] = caller.user;
  data["csrf"] = caller.csrf;
  data["login"] = caller.by_cookie ? "cookie" : "token";
  data["several_users"] = settings_.several_users;
  data["version"] = kVersion;
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
