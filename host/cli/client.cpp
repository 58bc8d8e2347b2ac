#include "host/cli/client.h"

#include <httplib.h>
#include <json/json.h>

#include <chrono>

#include "host/cli/format.h"

namespace cli {
namespace {

constexpr const char* kApiPath = "/webapi/TAVO.Fennox.CopyMove?version=3&method=";
// Longer than the server itself waits for a task's first data.
constexpr std::chrono::seconds kReadTimeout(90);
constexpr std::chrono::seconds kConnectTimeout(10);

std::string ConnectionText(httplib::Error error, const std::string& origin) {
  switch (error) {
    case httplib::Error::Connection:
    case httplib::Error::ConnectionTimeout:
      return "cannot connect to " + origin;
    case httplib::Error::Read:
    case httplib::Error::Write:
      return "the connection to " + origin + " broke";
    case httplib::Error::SSLConnection:
    case httplib::Error::SSLLoadingCerts:
      return "no TLS connection to " + origin;
    case httplib::Error::SSLServerVerification:
      return "the certificate of " + origin + " is not trusted";
    default:
      return "no answer from " + origin + " (" + httplib::to_string(error) + ")";
  }
}

const char* StatusText(int status) {
  switch (status) {
    case 401:
      return "not logged in: set FENNOX_TOKEN, or log in with \"fennox login\"";
    case 403:
      return "the server forbids this call";
    case 404:
      return "the server does not know this call";
    case 413:
      return "the request is too large for the server";
    case 429:
      return "too many requests";
    case 503:
      return "the server is not ready";
    default:
      return "the server cannot answer";
  }
}

// The server's own words say more than the status, except for whoever is not logged in.
std::string HttpText(int status, const Json::Value& failure) {
  std::string words;
  if (failure.isObject() && failure["detail"].isObject() &&
      failure["detail"]["message"].isString()) {
    words = Printable(failure["detail"]["message"].asString());
  }
  if (words.empty() || words == "not logged in") words = StatusText(status);
  return words + " (HTTP " + std::to_string(status) + ")";
}

bool ParseJson(const std::string& body, Json::Value* out) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  try {
    return reader->parse(body.data(), body.data() + body.size(), out, nullptr);
  } catch (const Json::Exception&) {  // nested too deeply
    return false;
  }
}

}  // namespace

bool CallError::Passing() const {
  if (kind == Kind::kUnreachable) return true;
  return kind == Kind::kHttp && (http_status == 429 || http_status >= 500);
}

bool ReadEnvelope(int http_status, const std::string& body, Json::Value* data, CallError* error) {
  *error = {};
  error->http_status = http_status;
  Json::Value answer;
  const bool readable = ParseJson(body, &answer) && answer.isObject() && answer["success"].isBool();
  if (http_status != 200) {
    error->kind = CallError::Kind::kHttp;
    const Json::Value told = readable ? answer["error"] : Json::Value();
    if (told.isObject() && told["code"].isInt()) error->code = told["code"].asInt();
    error->text = HttpText(http_status, told);
    return false;
  }
  if (readable && answer["success"].asBool()) {
    *data = answer["data"];
    return true;
  }
  const Json::Value failure = readable ? answer["error"] : Json::Value();
  if (!failure.isObject() || !failure["code"].isInt()) {
    error->kind = CallError::Kind::kAnswer;
    error->text = "the answer is not one of a Fennox server";
    return false;
  }
  error->kind = CallError::Kind::kApi;
  error->code = failure["code"].asInt();
  error->detail = failure["detail"];
  return false;
}

struct Client::Connection {
  Connection(const ServerAddress& where, const std::string& token)
      : address(where), http(where.origin) {
    http.set_keep_alive(true);
    http.set_tcp_nodelay(true);
    http.set_connection_timeout(kConnectTimeout);
    http.set_read_timeout(kReadTimeout);
    if (!token.empty()) http.set_bearer_token_auth(token);
  }

  bool Finish(const httplib::Result& result, Json::Value* data, CallError* error) const {
    if (!result) {
      *error = {};
      error->text = ConnectionText(result.error(), address.origin);
      return false;
    }
    return ReadEnvelope(result->status, result->body, data, error);
  }

  ServerAddress address;
  httplib::Client http;
};

Client::Client(const ServerAddress& address, const std::string& token)
    : connection_(std::make_unique<Connection>(address, token)) {}
Client::~Client() = default;
Client::Client(Client&&) noexcept = default;
Client& Client::operator=(Client&&) noexcept = default;

bool Client::Call(const std::string& method, const Json::Value& params, Json::Value* data,
                  CallError* error) {
  const std::string path = connection_->address.base + kApiPath + method;
  return connection_->Finish(connection_->http.Post(path, ToJsonLine(params), "application/json"),
                             data, error);
}

bool Client::Get(const std::string& call, const std::multimap<std::string, std::string>& query,
                 Json::Value* data, CallError* error) {
  const std::string path = connection_->address.base + "/host/" + call;
  const httplib::Params params(query.begin(), query.end());
  return connection_->Finish(connection_->http.Get(path, params, httplib::Headers()), data, error);
}

bool Client::Post(const std::string& call, const Json::Value& params, Json::Value* data,
                  CallError* error) {
  const std::string path = connection_->address.base + "/host/" + call;
  return connection_->Finish(connection_->http.Post(path, ToJsonLine(params), "application/json"),
                             data, error);
}

}  // namespace cli
