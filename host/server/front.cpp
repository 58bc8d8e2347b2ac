#include "front.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <charconv>
#include <cstring>

#include "bounds.h"
#include "envelope.h"
#include "flight.h"
#include "host_calls.h"
#include "names.h"
#include "page.h"
#include "replies.h"
#include "secret_text.h"
#include "support/errors.h"
#include "webapi_runtime/api_request.h"

namespace host {
namespace {

// Status requests may wait, and idle connections hold a thread for a while.
constexpr std::size_t kThreads = kMaxInFlight + 64;
constexpr std::size_t kMetricsThreads = 2;

constexpr const char* kApiPrefix = "/webapi/";
constexpr const char* kHostPrefix = "/host/";
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

// Notes how long an answer took, and its status.
class Timed {
 public:
  Timed(RequestFigures* figures, const httplib::Response& response)
      : figures_(figures), response_(response) {}
  ~Timed() { figures_->Note(response_.status, std::chrono::steady_clock::now() - begin_); }
  Timed(const Timed&) = delete;
  Timed& operator=(const Timed&) = delete;

 private:
  RequestFigures* figures_;
  const httplib::Response& response_;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

// The launcher's end is the server's end, so whoever can answer is well.
void SayHealthy(httplib::Response& response) {
  Json::Value data(Json::objectValue);
  data["status"] = "ok";
  Reply(response, 200, SuccessText(data));
}

// The page is the same for everyone, and after an upgrade another one: browsers keep its
// files and ask whether they changed.
void ServePageFile(const PageFile& file, const httplib::Request& request,
                   httplib::Response& response) {
  response.headers.erase("Cache-Control");
  response.set_header("Cache-Control", "no-cache");
  response.set_header("ETag", file.etag);
  if (request.get_header_value("If-None-Match").find(file.etag) != std::string::npos) {
    response.status = 304;
    return;
  }
  response.status = 200;
  response.set_content(file.content.data(), file.content.size(), file.type);
}

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
    : settings_(std::move(settings)),
      tokens_(std::move(tokens)),
      launcher_(launcher),
      limits_(settings_.requests_per_second, settings_.requests_at_once) {}

Front::~Front() {
  if (metrics_thread_.joinable()) metrics_thread_.join();
}

bool Front::OpenSessions(const std::string& folder, std::string* err) {
  return sessions_.Open(folder + "/sessions.db", settings_.session_idle, settings_.session_life,
                        err);
}

bool Front::Bind(std::string* err) {
  server_ = std::make_unique<HttpServer>(settings_.connection, kThreads);
  if (secure() && !server_->UseTls(settings_.certificate, settings_.key, err)) return false;
  SetUpServer();
  port_ = server_->Bind(settings_.address, settings_.port);
  if (port_ < 0) {
    *err = "cannot listen on " + settings_.address + ":" + std::to_string(settings_.port) + ": " +
           ::strerror(errno);
    return false;
  }
  // Browsers share cookies among the ports of a host; several servers must not.
  cookie_name_ = "fennox_" + std::to_string(port_);
  return settings_.metrics_address.empty() || BindMetrics(err);
}

bool Front::BindMetrics(std::string* err) {
  metrics_server_ = std::make_unique<HttpServer>(settings_.connection, kMetricsThreads);
  metrics_server_->Get("/metrics", [this](const auto&, auto& response) { ServeMetrics(response); });
  metrics_server_->Get("/health", [](const auto&, auto& response) { SayHealthy(response); });
  if (metrics_server_->Bind(settings_.metrics_address, settings_.metrics_port) >= 0) return true;
  *err = "cannot listen on " + settings_.metrics_address + ":" +
         std::to_string(settings_.metrics_port) + ": " + ::strerror(errno);
  return false;
}

void Front::ServeMetrics(httplib::Response& response) {
  TaskFigures tasks;
  std::string text = figures_.Text();
  if (launcher_.CountTasks(&tasks)) text += FiguresText(tasks);
  response.set_content(text, "text/plain; version=0.0.4");
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
  server_->Get(".*", [this](const auto& request, auto& response) {
    const Timed timed(&figures_, response);
    Get(request, response);
  });
  server_->Post(".*", [this](const auto& request, auto& response, const auto& reader) {
    const Timed timed(&figures_, response);
    Post(request, response, reader);
  });
}

void Front::Serve() {
  if (metrics_server_) {
    metrics_thread_ = std::thread([this] { metrics_server_->listen_after_bind(); });
  }
  server_->listen_after_bind();
}

void Front::Stop() {
  if (metrics_server_) metrics_server_->stop();
  server_->stop();
}

void Front::Get(const httplib::Request& request, httplib::Response& response) {
  if (RefuseForeignHost(request, response)) return;
  if (request.path == "/" && request.has_param("token")) {
    LoginByAddress(request, response);
    return;
  }
  if (const PageFile* file = FindPageFile(request.path); file != nullptr) {
    ServePageFile(*file, request, response);
    return;
  }
  if (request.path == "/health") {
    SayHealthy(response);
    return;
  }
  if (request.path == "/host/login") {
    WaysToLogIn(response);
    return;
  }
  if (const auto caller = Admit(request, response)) Serve(request, response, Body{}, *caller);
}

void Front::Post(const httplib::Request& request, httplib::Response& response,
                 const httplib::ContentReader& reader) {
  const bool login = request.path == "/host/login";
  std::optional<Identity> caller;
  const bool foreign = RefuseForeignHost(request, response) || RefuseForeignPage(request, response);
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
    // It held a password.
    Wipe(&body.text);
    for (auto& [name, text] : body.fields) Wipe(&text);
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

bool Front::RefuseForeignPage(const httplib::Request& request, httplib::Response& response) {
  // A login needs no token against forgery, and another site's page must not log a browser
  // in as somebody of its choice either.
  if (request.get_header_value("Sec-Fetch-Site") != "cross-site") return false;
  Refuse(response, 403, WEBFM_NO_PERMISSION, "the request comes from another site's page");
  return true;
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
  if (!limits_.Admit(caller->user)) {
    response.set_header("Retry-After", "1");
    Refuse(response, 429, WEBFM_BUSY, "too many requests in a short time; slow down");
    return std::nullopt;
  }
  return caller;
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
  call.params = FieldParameters(body, QueryFields(request));
  if (body.is_json) call.body = body.text;
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
  const bool logout = call.method == "logout" && request.method == "POST";
  if (!logout && !IsHostCall(call.method)) {
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
  if (logout) {
    Logout(request, response, call.params, caller);
  } else {
    Run(call, response);
  }
}

void Front::Run(const Call& call, httplib::Response& response) {
  const UserLimits::Place place(&limits_, call.user);
  const Flight flight(&in_flight_, kMaxInFlight);
  if (!place.taken() || !flight.admitted()) {
    response.set_header("Retry-After", "1");
    Refuse(response, 429, WEBFM_BUSY, "too many requests at once");
    return;
  }
  std::string answer;
  switch (launcher_.Execute(call, &answer)) {
    case Outcome::kAnswered:
      Reply(response, 200, answer);
      return;
    case Outcome::kUnreadable:
      Reply(response, 400, answer);
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

}  // namespace host
