#include "webdav_session.h"

#include <strings.h>

#include <memory>
#include <utility>

#include "secret_file.h"
#include "server_path.h"

namespace TAVOCloud {
namespace {

constexpr int kMostRedirects = 3;
constexpr long kUnauthorized = 401;
constexpr long kTooMany = 429;
constexpr long kUnavailable = 503;
constexpr unsigned long kAnyWay = CURLAUTH_BASIC | CURLAUTH_DIGEST;

struct FreeUrl {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

std::string OriginOf(const core::RemoteConfig& remote) {
  return (remote.protocol == "webdavs" ? "https://" : "http://") +
         HostAndPort(remote.host, remote.port);
}

std::string PartOf(CURLU* url, CURLUPart part, unsigned flags) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, flags) != CURLUE_OK) return {};
  std::string copy = text;
  curl_free(text);
  return copy;
}

}  // namespace

WebDavSession::WebDavSession(core::RemoteConfig remote)
    : remote_(std::move(remote)),
      origin_(OriginOf(remote_)),
      logged_in_(remote_.user.empty()),
      client_(remote_) {}

std::string WebDavSession::UrlOf(const std::string& path) const {
  return origin_ + PercentEncode(path);
}

HttpRequest WebDavSession::RequestFor(const char* method, const std::string& path) const {
  HttpRequest request;
  request.method = method;
  request.url = UrlOf(path);
  return request;
}

WebDavAnswer WebDavSession::SendOnce(const HttpRequest& request) {
  WebDavAnswer answer;
  static_cast<HttpAnswer&>(answer) = client_.Send(request);
  served_ = served_ && !answer.fresh;
  answer.unserved = !served_;
  served_ = served_ || answer.Succeeded() || answer.response == kUnauthorized;
  return answer;
}

bool WebDavSession::IsHere(const std::string& url, std::string* here) const {
  const std::unique_ptr<CURLU, FreeUrl> there(curl_url());
  const std::unique_ptr<CURLU, FreeUrl> own(curl_url());
  if (curl_url_set(there.get(), CURLUPART_URL, url.c_str(), CURLU_PATH_AS_IS) != CURLUE_OK ||
      curl_url_set(own.get(), CURLUPART_URL, origin_.c_str(), 0) != CURLUE_OK) {
    return false;
  }
  for (const CURLUPart part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT}) {
    const std::string value = PartOf(there.get(), part, CURLU_DEFAULT_PORT);
    const std::string wanted = PartOf(own.get(), part, CURLU_DEFAULT_PORT);
    if (value.empty() || strcasecmp(value.c_str(), wanted.c_str()) != 0) return false;
  }
  const std::string query = PartOf(there.get(), CURLUPART_QUERY, 0);
  *here = origin_ + PartOf(there.get(), CURLUPART_PATH, 0) + (query.empty() ? "" : "?" + query);
  return true;
}

WebDavAnswer WebDavSession::Follow(HttpRequest request) {
  for (int hops = 0;; ++hops) {
    WebDavAnswer answer = SendOnce(request);
    const char* next = nullptr;
    (void)curl_easy_getinfo(curl().get(), CURLINFO_REDIRECT_URL, &next);
    if (!answer.ok() || next == nullptr) return answer;
    answer.code = CURLE_REMOTE_ACCESS_DENIED;
    if (hops == kMostRedirects) {
      answer.words = "the server points from place to place without an end";
      return answer;
    }
    if (!IsHere(next, &request.url)) {
      answer.words = "the server points to another one, which is not followed";
      return answer;
    }
    if (request.upload != nullptr && !request.upload->SeekTo(0)) {
      answer.words = "the server points to another place after it has taken data";
      return answer;
    }
  }
}

// Learns how the server wants to be told who asks, so that no data is sent in vain.
WebDavAnswer WebDavSession::LogIn() {
  WebDavAnswer answer;
  HttpLogin login{remote_.user, {}, kAnyWay};
  if (!remote_.password_file.empty() &&
      !ReadSecret(remote_.password_file, &login.password, &answer.words)) {
    answer.code = CURLE_LOGIN_DENIED;
    return answer;
  }
  client_.LogInAs(login);
  answer = Follow(RequestFor("OPTIONS", remote_.path.empty() ? "/" : remote_.path));
  unsigned long offered = 0;
  (void)curl_easy_getinfo(curl().get(), CURLINFO_HTTPAUTH_AVAIL, &offered);
  if (answer.Succeeded() && (offered & kAnyWay) != 0) {
    login.ways = (offered & CURLAUTH_DIGEST) != 0 ? CURLAUTH_DIGEST : CURLAUTH_BASIC;
    client_.LogInAs(login);
  }
  return answer;
}

WebDavAnswer WebDavSession::Send(const HttpRequest& request) {
  if (!logged_in_) {
    WebDavAnswer answer = LogIn();
    const bool busy = answer.response == kTooMany || answer.response == kUnavailable;
    if (!answer.ok() || answer.response == kUnauthorized || busy) return answer;
    logged_in_ = true;
  }
  return Follow(request);
}

}  // namespace TAVOCloud
