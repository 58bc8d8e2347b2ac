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
    : remote_(std::move(remote)), origin_(OriginOf(remote_)), login_ways_(kAnyWay), curl_(1) {}

std::string WebDavSession::UrlOf(const std::string& path) const {
  return origin_ + PercentEncode(path);
}

bool WebDavSession::PrepareLogin(std::string* err) {
  if (!have_password_ && !remote_.password_file.empty()) {
    if (!ReadSecret(remote_.password_file, &password_, err)) return false;
    have_password_ = true;
  }
  if (remote_.user.empty()) return true;
  curl_.Set(CURLOPT_HTTPAUTH, login_ways_);
  curl_.Set(CURLOPT_USERNAME, remote_.user.c_str());
  if (have_password_) curl_.Set(CURLOPT_PASSWORD, password_.c_str());
  return true;
}

// The handle is never reset: with its other options it would forget the server's
// challenge, and each request would be refused once before it is let in.
bool WebDavSession::Prepare(const WebDavRequest& request, const std::string& url,
                            std::string* err) {
  if (!curl_.IsUsable()) {
    *err = "out of memory";
    return false;
  }
  curl_.SetCommon(url, remote_.protocol == "webdavs" ? "https" : "http", remote_.connect_timeout,
                  request.slow);
  curl_.Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl_.Set(CURLOPT_FOLLOWLOCATION, 0L);
  curl_.SetTls(remote_.ca_file);
  if (!PrepareLogin(err)) return false;
  PrepareBody(request);
  if (!curl_.AreOptionsTaken()) *err = "the transfer library lacks support for " + remote_.protocol;
  return curl_.AreOptionsTaken();
}

void WebDavSession::PrepareBody(const WebDavRequest& request) {
  curl_.Set(CURLOPT_HTTPGET, 1L);  // takes back what the last request has set
  if (request.upload != nullptr) {
    curl_.SetUpload(request.upload);
  } else if (!request.body.empty()) {
    curl_.Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    curl_.Set(CURLOPT_COPYPOSTFIELDS, request.body.c_str());
  }
  curl_.Set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
}

void WebDavSession::Perform(WebDavAnswer* answer) {
  curl_.Perform(answer);
  served_ = served_ && !answer->fresh;
  answer->unserved = !served_;
  served_ = served_ || answer->Succeeded() || answer->response == kUnauthorized;
  curl_off_t seconds = 0;
  (void)curl_easy_getinfo(curl_.get(), CURLINFO_RETRY_AFTER, &seconds);
  answer->retry_after = static_cast<long>(seconds);
}

WebDavAnswer WebDavSession::SendOnce(const WebDavRequest& request, const std::string& url,
                                     std::string* next) {
  WebDavAnswer answer;
  CurlList headers;
  for (const std::string& header : request.headers) {
    if (!headers.Append(header)) answer.words = "out of memory";
  }
  if (!answer.words.empty() || !Prepare(request, url, &answer.words)) {
    answer.code = CURLE_LOGIN_DENIED;
    return answer;
  }
  WebDavExchange exchange(curl_.get(), request, &answer);
  curl_.Set(CURLOPT_HTTPHEADER, headers.get());
  curl_.Set(CURLOPT_HEADERFUNCTION, &WebDavExchange::OnHeader);
  curl_.Set(CURLOPT_HEADERDATA, &exchange);
  curl_.Set(CURLOPT_WRITEFUNCTION, &WebDavExchange::OnBody);
  curl_.Set(CURLOPT_WRITEDATA, &exchange);
  Perform(&answer);
  curl_.Set(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
  const char* place = nullptr;
  (void)curl_easy_getinfo(curl_.get(), CURLINFO_REDIRECT_URL, &place);
  if (answer.ok() && place != nullptr) *next = place;
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

WebDavAnswer WebDavSession::Follow(const WebDavRequest& request) {
  std::string url = UrlOf(request.path);
  for (int hops = 0;; ++hops) {
    std::string next;
    WebDavAnswer answer = SendOnce(request, url, &next);
    if (next.empty()) return answer;
    answer.code = CURLE_REMOTE_ACCESS_DENIED;
    if (hops == kMostRedirects) {
      answer.words = "the server points from place to place without an end";
      return answer;
    }
    if (!IsHere(next, &url)) {
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
  WebDavRequest request;
  request.method = "OPTIONS";
  request.path = remote_.path.empty() ? "/" : remote_.path;
  WebDavAnswer answer = Follow(request);
  unsigned long offered = 0;
  (void)curl_easy_getinfo(curl_.get(), CURLINFO_HTTPAUTH_AVAIL, &offered);
  if (answer.Succeeded() && (offered & kAnyWay) != 0) {
    login_ways_ = (offered & CURLAUTH_DIGEST) != 0 ? CURLAUTH_DIGEST : CURLAUTH_BASIC;
  }
  return answer;
}

WebDavAnswer WebDavSession::Send(const WebDavRequest& request) {
  if (!logged_in_ && !remote_.user.empty()) {
    WebDavAnswer answer = LogIn();
    const bool busy = answer.response == kTooMany || answer.response == kUnavailable;
    if (!answer.ok() || answer.response == kUnauthorized || busy) return answer;
    logged_in_ = true;
  }
  return Follow(request);
}

}  // namespace TAVOCloud
