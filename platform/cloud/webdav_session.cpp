#include "webdav_session.h"

#include <array>
#include <string_view>
#include <utility>

#include "curl_flow.h"
#include "secret_file.h"
#include "server_path.h"
#include "signal_guard.h"

namespace TAVOCloud {
namespace {

constexpr long kConnectTimeout = 15;  // seconds
constexpr long kHurriedTimeout = 5;
constexpr long kStallTimeout = 60;
constexpr long kSlowTimeout = 3600;  // a large file copied on the server
constexpr long kBufferSize = 512L << 10;
constexpr int kMostRedirects = 3;
constexpr long kUnauthorized = 401;
constexpr long kTooMany = 429;
constexpr long kUnavailable = 503;
constexpr unsigned long kAnyWay = CURLAUTH_BASIC | CURLAUTH_DIGEST;

struct FreeList {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeList>;

struct FreeUrl {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

bool Append(const std::string& line, HeaderList* list) {
  curl_slist* longer = curl_slist_append(list->get(), line.c_str());
  if (longer == nullptr) return false;
  (void)list->release();  // is part of the longer one
  list->reset(longer);
  return true;
}

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
      login_ways_(kAnyWay),
      handle_(curl_easy_init()) {}

std::string WebDavSession::UrlOf(const std::string& path) const {
  return origin_ + PercentEncode(path);
}

template <typename Value>
void WebDavSession::Set(CURLoption option, Value value) {
  if (curl_easy_setopt(handle_.get(), option, value) != CURLE_OK) options_taken_ = false;
}

bool WebDavSession::PrepareLogin(std::string* err) {
  if (!have_password_ && !remote_.password_file.empty()) {
    if (!ReadSecret(remote_.password_file, &password_, err)) return false;
    have_password_ = true;
  }
  if (remote_.user.empty()) return true;
  Set(CURLOPT_HTTPAUTH, login_ways_);
  Set(CURLOPT_USERNAME, remote_.user.c_str());
  if (have_password_) Set(CURLOPT_PASSWORD, password_.c_str());
  return true;
}

void WebDavSession::PreparePatience(bool slow) {
  Set(CURLOPT_CONNECTTIMEOUT, kConnectTimeout);
  Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  Set(CURLOPT_LOW_SPEED_TIME, slow ? kSlowTimeout : kStallTimeout);
  Set(CURLOPT_TCP_KEEPALIVE, 1L);
  Set(CURLOPT_TIMEOUT, hurry_ ? kHurriedTimeout : 0L);
  Set(CURLOPT_NOPROGRESS, watched_ == nullptr ? 1L : 0L);
  Set(CURLOPT_XFERINFOFUNCTION, &AskForStop);
  Set(CURLOPT_XFERINFODATA, watched_);
}

// The handle is never reset: with its other options it would forget the server's
// challenge, and each request would be refused once before it is let in.
bool WebDavSession::Prepare(const std::string& url, std::string* err) {
  if (handle_ == nullptr) {
    *err = "out of memory";
    return false;
  }
  options_taken_ = true;
  Set(CURLOPT_URL, url.c_str());
  Set(CURLOPT_PROTOCOLS_STR, remote_.protocol == "webdavs" ? "https" : "http");
  Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  Set(CURLOPT_FOLLOWLOCATION, 0L);
  Set(CURLOPT_PATH_AS_IS, 1L);
  Set(CURLOPT_PROXY, "");  // the environment names no proxy for these servers
  Set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_MAXCONNECTS, 1L);
  Set(CURLOPT_BUFFERSIZE, kBufferSize);
  Set(CURLOPT_UPLOAD_BUFFERSIZE, kBufferSize);
  Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  Set(CURLOPT_SSL_VERIFYPEER, 1L);
  Set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (!remote_.ca_file.empty()) Set(CURLOPT_CAINFO, remote_.ca_file.c_str());
  if (!PrepareLogin(err)) return false;
  // An option that was not taken might be the one that checks the server.
  if (!options_taken_) *err = "the transfer library lacks support for " + remote_.protocol;
  return options_taken_;
}

void WebDavSession::PrepareBody(const WebDavRequest& request) {
  Set(CURLOPT_HTTPGET, 1L);  // takes back what the last request has set
  if (request.upload != nullptr) {
    Set(CURLOPT_UPLOAD, 1L);
    Set(CURLOPT_READFUNCTION, &GiveData);
    Set(CURLOPT_READDATA, request.upload);
    Set(CURLOPT_SEEKFUNCTION, &SeekData);
    Set(CURLOPT_SEEKDATA, request.upload);
    Set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(request.upload->size()));
  } else if (!request.body.empty()) {
    Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    Set(CURLOPT_COPYPOSTFIELDS, request.body.c_str());
  }
  Set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
}

void WebDavSession::Perform(WebDavAnswer* answer) {
  const NoBrokenPipeSignal guard;
  std::array<char, CURL_ERROR_SIZE> buffer{};
  Set(CURLOPT_ERRORBUFFER, buffer.data());
  answer->code = curl_easy_perform(handle_.get());
  Set(CURLOPT_ERRORBUFFER, static_cast<char*>(nullptr));
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &answer->response);
  long number = 0;
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_OS_ERRNO, &number);
  answer->os_error = static_cast<int>(number);
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_NUM_CONNECTS, &number);
  answer->fresh = number > 0;
  served_ = served_ && !answer->fresh;
  answer->unserved = !served_;
  served_ = served_ || (answer->Succeeded() || answer->response == kUnauthorized);
  curl_off_t seconds = 0;
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_RETRY_AFTER, &seconds);
  answer->retry_after = static_cast<long>(seconds);
  if (!answer->words.empty()) return;
  answer->words = buffer.data();
  if (answer->words.empty()) answer->words = curl_easy_strerror(answer->code);
}

WebDavAnswer WebDavSession::SendOnce(const WebDavRequest& request, const std::string& url,
                                     std::string* next) {
  WebDavAnswer answer;
  HeaderList headers;
  for (const std::string& header : request.headers) {
    if (!Append(header, &headers)) answer.words = "out of memory";
  }
  if (!answer.words.empty() || !Prepare(url, &answer.words)) {
    answer.code = CURLE_LOGIN_DENIED;
    return answer;
  }
  WebDavExchange exchange(handle_.get(), request, &answer);
  PreparePatience(request.slow);
  PrepareBody(request);
  Set(CURLOPT_HTTPHEADER, headers.get());
  Set(CURLOPT_HEADERFUNCTION, &WebDavExchange::OnHeader);
  Set(CURLOPT_HEADERDATA, &exchange);
  Set(CURLOPT_WRITEFUNCTION, &WebDavExchange::OnBody);
  Set(CURLOPT_WRITEDATA, &exchange);
  Perform(&answer);
  Set(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
  const char* place = nullptr;
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_REDIRECT_URL, &place);
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
    if (value.empty() || value != PartOf(own.get(), part, CURLU_DEFAULT_PORT)) return false;
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
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_HTTPAUTH_AVAIL, &offered);
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
