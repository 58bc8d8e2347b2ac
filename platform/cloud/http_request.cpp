#include "http_request.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "signal_guard.h"

namespace TAVOCloud {
namespace {

constexpr long kConnectTimeout = 15;  // seconds
constexpr long kHurriedTimeout = 5;
constexpr long kStallTimeout = 60;
constexpr long kSlowTimeout = 3600;
constexpr long kBufferSize = 512L << 10;
constexpr long kMostConnections = 3;
constexpr std::size_t kLongestText = 4U << 20U;

struct FreeList {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeList>;

bool Append(const std::string& line, HeaderList* list) {
  curl_slist* longer = curl_slist_append(list->get(), line.c_str());
  if (longer == nullptr) return false;
  (void)list->release();  // is part of the longer one
  list->reset(longer);
  return true;
}

HeaderList ListOf(const std::vector<std::string>& headers) {
  HeaderList list;
  // Waiting for a go-ahead costs more than data that is sent in vain now and then.
  bool done = Append("Expect:", &list);
  for (const std::string& header : headers) done = done && Append(header, &list);
  if (!done) list.reset();
  return list;
}

// An answer on its way in.
struct Exchange {
  CURL* handle;
  const HttpRequest& request;
  HttpAnswer* answer;
};

void TakeHeader(std::string_view line, HttpAnswer* answer) {
  if (line.starts_with("HTTP/")) {
    answer->headers.clear();  // those of an answer that only comes before the real one
    return;
  }
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  std::string name(line.substr(0, colon));
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  std::string_view value = line.substr(colon + 1);
  value.remove_prefix(std::min(value.find_first_not_of(" \t\r\n"), value.size()));
  value = value.substr(0, value.find_last_not_of(" \t\r\n") + 1);
  answer->headers[name] = value;
}

std::size_t OnHeader(char* data, std::size_t one, std::size_t length, void* user) {
  TakeHeader({data, one * length}, static_cast<Exchange*>(user)->answer);
  return one * length;
}

std::size_t OnBody(char* data, std::size_t one, std::size_t length, void* user) {
  const Exchange& exchange = *static_cast<Exchange*>(user);
  const std::size_t all = one * length;
  HttpAnswer& answer = *exchange.answer;
  (void)curl_easy_getinfo(exchange.handle, CURLINFO_RESPONSE_CODE, &answer.response);
  if (exchange.request.take && answer.Succeeded()) {
    return exchange.request.take(answer, {data, all}) ? all : 0;
  }
  if (answer.text.size() + all > kLongestText) return 0;
  answer.text.append(data, all);
  return all;
}

int AskWatched(void* flow, curl_off_t /*dl*/, curl_off_t /*dl*/, curl_off_t /*ul*/,
               curl_off_t /*ul*/) {
  return static_cast<Flow*>(flow)->IsCancelled() ? 1 : 0;
}

HttpAnswer Unprepared(const std::string& words) {
  HttpAnswer answer;
  answer.code = CURLE_FAILED_INIT;
  answer.words = words;
  return answer;
}

}  // namespace

HttpClient::HttpClient(std::string ca_file)
    : ca_file_(std::move(ca_file)), handle_(curl_easy_init()) {}

template <typename Value>
void HttpClient::Set(CURLoption option, Value value) {
  if (curl_easy_setopt(handle_.get(), option, value) != CURLE_OK) options_taken_ = false;
}

void HttpClient::PreparePatience(bool slow) {
  Set(CURLOPT_CONNECTTIMEOUT, kConnectTimeout);
  Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  Set(CURLOPT_LOW_SPEED_TIME, slow ? kSlowTimeout : kStallTimeout);
  Set(CURLOPT_TCP_KEEPALIVE, 1L);
  Set(CURLOPT_TIMEOUT, hurry_ ? kHurriedTimeout : 0L);
  Set(CURLOPT_NOPROGRESS, watched_ == nullptr ? 1L : 0L);
  Set(CURLOPT_XFERINFOFUNCTION, &AskWatched);
  Set(CURLOPT_XFERINFODATA, watched_);
}

void HttpClient::Prepare(const HttpRequest& request) {
  curl_easy_reset(handle_.get());  // keeps the connections
  options_taken_ = true;
  Set(CURLOPT_URL, request.url.c_str());
  Set(CURLOPT_PROTOCOLS_STR, request.url.starts_with("https:") ? "https" : "http");
  Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  Set(CURLOPT_FOLLOWLOCATION, 0L);
  Set(CURLOPT_PROXY, "");  // the environment names no proxy for these servers
  Set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_MAXCONNECTS, kMostConnections);
  Set(CURLOPT_BUFFERSIZE, kBufferSize);
  Set(CURLOPT_UPLOAD_BUFFERSIZE, kBufferSize);
  Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  Set(CURLOPT_SSL_VERIFYPEER, 1L);
  Set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (!ca_file_.empty()) Set(CURLOPT_CAINFO, ca_file_.c_str());
  Set(CURLOPT_POST, 1L);
  Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  Set(CURLOPT_POSTFIELDS, request.body.empty() ? "" : request.body.data());
  PreparePatience(request.slow);
}

void HttpClient::Perform(HttpAnswer* answer) {
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
  curl_off_t seconds = 0;
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_RETRY_AFTER, &seconds);
  answer->retry_after = static_cast<long>(seconds);
  answer->words = buffer.data();
  if (answer->words.empty()) answer->words = curl_easy_strerror(answer->code);
}

HttpAnswer HttpClient::Post(const HttpRequest& request) {
  const HeaderList headers = ListOf(request.headers);
  if (handle_ == nullptr || headers == nullptr) return Unprepared("out of memory");
  Prepare(request);
  HttpAnswer answer;
  Exchange exchange{handle_.get(), request, &answer};
  Set(CURLOPT_HTTPHEADER, headers.get());
  Set(CURLOPT_HEADERFUNCTION, &OnHeader);
  Set(CURLOPT_HEADERDATA, &exchange);
  Set(CURLOPT_WRITEFUNCTION, &OnBody);
  Set(CURLOPT_WRITEDATA, &exchange);
  // An option that was not taken might be the one that checks the server.
  if (!options_taken_) return Unprepared("the transfer library lacks support for HTTPS");
  Perform(&answer);
  Set(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
  return answer;
}

}  // namespace TAVOCloud
