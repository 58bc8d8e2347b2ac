#include "dropbox_api.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <utility>

#include "core/secret.h"
#include "server_path.h"

namespace TAVOCloud {
namespace {

constexpr const char* kApi = "api";
constexpr const char* kContent = "content";
constexpr const char* kArgument = "Dropbox-API-Arg: ";
constexpr const char* kJsonBody = "Content-Type: application/json";
constexpr const char* kFileBody = "Content-Type: application/octet-stream";
constexpr long kUnauthorized = 401;
constexpr std::size_t kDeepest = 20;

// Other letters than those of ASCII come out escaped, as a header needs them.
std::string TextOf(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = false;
  std::string text = Json::writeString(builder, value);
  // The writer leaves this one as it is.
  for (std::size_t at = text.find('\x7f'); at != std::string::npos; at = text.find('\x7f')) {
    text.replace(at, 1, "\\u007f");
  }
  return text;
}

bool IsLoopback(const std::string& host) {
  in_addr v4{};
  in6_addr v6{};
  if (inet_pton(AF_INET, host.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24U) == 127U;
  const bool framed = host.size() > 1 && host.front() == '[' && host.back() == ']';
  const std::string bare = framed ? host.substr(1, host.size() - 2) : host;
  return inet_pton(AF_INET6, bare.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}

// An error is a union, whose tag names the member with the rest of it; where it is a
// structure, "reason" has the rest.
std::vector<std::string> TagsOf(const Json::Value& error) {
  std::vector<std::string> tags;
  const Json::Value* at = &error;
  while (at->isObject() && at->isMember(".tag") && tags.size() < kDeepest) {
    tags.push_back(TextIn(*at, ".tag"));
    const Json::Value& inner = (*at)[tags.back()];
    at = inner.isNull() ? &(*at)["reason"] : &inner;
  }
  if (at->isString()) tags.push_back(at->asString());
  return tags;
}

DropboxAnswer Unauthorized(const std::string& words) {
  DropboxAnswer answer;
  answer.code = CURLE_LOGIN_DENIED;
  answer.words = words;
  return answer;
}

DropboxAnswer Understand(HttpAnswer http, const std::string& call) {
  DropboxAnswer answer;
  static_cast<HttpAnswer&>(answer) = std::move(http);
  answer.call = call;
  if (!answer.ok()) return answer;
  const Json::Value body = ReadJson(answer.text);
  if (answer.Succeeded()) {
    answer.result = body;
    return answer;
  }
  if (body.isObject()) answer.error = body["error"];
  answer.tags = TagsOf(answer.error);
  return answer;
}

}  // namespace

bool DropboxAnswer::Says(std::string_view tag) const {
  return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

std::string TextIn(const Json::Value& object, const char* name) {
  if (!object.isObject()) return {};
  const Json::Value& member = object[name];
  return member.isString() ? member.asString() : std::string();
}

std::uint64_t NumberIn(const Json::Value& object, const char* name) {
  if (!object.isObject()) return 0;
  const Json::Value& member = object[name];
  return member.isUInt64() ? member.asUInt64() : 0;
}

Json::Value ReadJson(const std::string& text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;
  builder["stackLimit"] = 100;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  try {
    std::string problems;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &problems)) return {};
  } catch (const Json::Exception&) {
    return {};  // nested too deeply
  }
  return value;
}

DropboxApi::DropboxApi(core::RemoteConfig remote) : remote_(std::move(remote)), client_(remote_) {}

std::string DropboxApi::UrlOf(const char* service, const std::string& path) const {
  if (remote_.host.empty()) return std::string("https://") + service + ".dropboxapi.com" + path;
  const bool plain = IsLoopback(remote_.host) && remote_.ca_file.empty();
  return (plain ? "http://" : "https://") + HostAndPort(remote_.host, remote_.port) + path;
}

DropboxAnswer DropboxApi::LogIn() {
  std::string text;
  std::string err;
  if (!core::ReadSecretFile(remote_.token_file, &text, &err)) return Unauthorized(err);
  const Json::Value login = ReadJson(text);
  const std::string token = TextIn(login, "refresh_token");
  const std::string key = TextIn(login, "app_key");
  const std::string secret = TextIn(login, "app_secret");
  if (token.empty() || key.empty()) {
    return Unauthorized(remote_.token_file +
                        R"(: is not a JSON object with "refresh_token" and "app_key")");
  }
  std::string form = "grant_type=refresh_token&refresh_token=" + PercentEncode(token) +
                     "&client_id=" + PercentEncode(key);
  if (!secret.empty()) form += "&client_secret=" + PercentEncode(secret);
  HttpRequest request;
  request.url = UrlOf(kApi, "/oauth2/token");
  request.headers = {"Content-Type: application/x-www-form-urlencoded"};
  request.body = form;
  DropboxAnswer answer = Understand(client_.Send(request), "oauth2/token");
  if (answer.Succeeded()) access_token_ = TextIn(answer.result, "access_token");
  const bool usable = access_token_.find_first_of("\r\n") == std::string::npos;
  if (answer.Succeeded() && (access_token_.empty() || !usable)) {
    access_token_.clear();
    return Unauthorized("the service's answer holds no access token");
  }
  if (answer.ok() && (answer.response == 400 || answer.response == kUnauthorized)) {
    return Unauthorized("the service refuses the refresh token or the app's key and secret in " +
                        remote_.token_file);
  }
  return answer;
}

DropboxAnswer DropboxApi::Authorized(const std::string& call, HttpRequest request) {
  request.headers.emplace_back();
  for (bool renewed = access_token_.empty();; renewed = true) {
    if (access_token_.empty()) {
      DropboxAnswer answer = LogIn();
      if (!answer.Succeeded()) return answer;
    }
    request.headers.back() = "Authorization: Bearer " + access_token_;
    DropboxAnswer answer = Understand(client_.Send(request), call);
    if (!answer.ok() || answer.response != kUnauthorized) return answer;
    access_token_.clear();
    if (renewed || !answer.Says("expired_access_token")) return answer;
  }
}

DropboxAnswer DropboxApi::Ask(const std::string& call, const Json::Value& argument, bool slow) {
  const std::string body = TextOf(argument);
  HttpRequest request;
  request.url = UrlOf(kApi, "/2/" + call);
  request.headers = {kJsonBody};
  request.body = body;
  request.slow = slow;
  return Authorized(call, std::move(request));
}

DropboxAnswer DropboxApi::Send(const std::string& call, const Json::Value& argument,
                               std::string_view data) {
  HttpRequest request;
  request.url = UrlOf(kContent, "/2/" + call);
  request.headers = {kFileBody, kArgument + TextOf(argument)};
  request.body = data;
  return Authorized(call, std::move(request));
}

DropboxAnswer DropboxApi::Fetch(
    const Json::Value& argument, std::uint64_t offset,
    std::function<bool(const HttpAnswer& begun, std::string_view data)> take) {
  const std::string call = "files/download";
  HttpRequest request;
  request.url = UrlOf(kContent, "/2/" + call);
  request.headers = {kFileBody, kArgument + TextOf(argument)};
  if (offset > 0) request.headers.push_back("Range: bytes=" + std::to_string(offset) + "-");
  request.take = std::move(take);
  return Authorized(call, std::move(request));
}

}  // namespace TAVOCloud
