#include "http_request.h"

#include <algorithm>
#include <cctype>

namespace TAVOCloud {
namespace {

constexpr long kMostConnections = 3;
constexpr std::size_t kLongestText = 4U << 20U;

// An answer on its way in.
struct Exchange {
  CURL* handle;
  const HttpRequest& request;
  HttpAnswer* answer;
};

void TakeHeader(std::string_view line, HttpAnswer* answer) {
  if (line.starts_with("HTTP/")) {
    // Those of an answer that only comes before the real one.
    answer->headers.clear();
    answer->text.clear();
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
  if (answer.text.size() + all > kLongestText) {
    answer.words = "the server's answer is too long";
    return 0;
  }
  answer.text.append(data, all);
  return all;
}

HttpAnswer Unprepared(const std::string& words) {
  HttpAnswer answer;
  answer.code = CURLE_FAILED_INIT;
  answer.words = words;
  return answer;
}

}  // namespace

HttpClient::HttpClient(const core::RemoteConfig& remote)
    : ca_file_(remote.ca_file), connect_timeout_(remote.connect_timeout), curl_(kMostConnections) {}

std::string HttpAnswer::Header(const std::string& name) const {
  const auto found = headers.find(name);
  return found == headers.end() ? std::string() : found->second;
}

void HttpClient::Prepare(const HttpRequest& request) {
  curl_.SetCommon(request.url, request.url.starts_with("https:") ? "https" : "http",
                  connect_timeout_, request.slow);
  curl_.SetTls(ca_file_);
  curl_.Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl_.Set(CURLOPT_FOLLOWLOCATION, 0L);
  if (!login_.user.empty()) {
    curl_.Set(CURLOPT_HTTPAUTH, login_.ways);
    curl_.Set(CURLOPT_USERNAME, login_.user.c_str());
    curl_.Set(CURLOPT_PASSWORD, login_.password.c_str());
  }
}

void HttpClient::PrepareBody(const HttpRequest& request) {
  curl_.Set(CURLOPT_HTTPGET, 1L);  // takes back what the last request has set
  if (request.upload != nullptr) {
    curl_.SetUpload(request.upload);
  } else if (!request.body.empty() || request.method == "POST") {
    curl_.Set(CURLOPT_POST, 1L);
    curl_.Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    curl_.Set(CURLOPT_POSTFIELDS, request.body.empty() ? "" : request.body.data());
  }
  if (request.method == "GET" || request.method == "PROPFIND") curl_.SetPrompt();
  curl_.Set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
}

// The library (7.88) reads freed memory when an answer begins with the continuation of a
// header that the answer before ended with; a handle without a past has none. But where a
// login answers a challenge the handle has to remember it, or each request would be
// refused once before it is let in.
void HttpClient::ForgetLastAnswer() {
  const bool challenged = !login_.user.empty() && login_.ways != CURLAUTH_BASIC;
  if (!challenged) curl_.Renew();
}

HttpAnswer HttpClient::Send(const HttpRequest& request) {
  ForgetLastAnswer();
  CurlList headers;
  bool usable = curl_.IsUsable();
  // Waiting for a go-ahead costs more than data that is sent in vain now and then, as
  // long as it is in memory.
  if (request.upload == nullptr) usable = usable && headers.Append("Expect:");
  for (const std::string& header : request.headers) usable = usable && headers.Append(header);
  if (!usable) return Unprepared("out of memory");
  Prepare(request);
  PrepareBody(request);
  HttpAnswer answer;
  Exchange exchange{curl_.get(), request, &answer};
  curl_.Set(CURLOPT_HTTPHEADER, headers.get());
  curl_.Set(CURLOPT_HEADERFUNCTION, &OnHeader);
  curl_.Set(CURLOPT_HEADERDATA, &exchange);
  curl_.Set(CURLOPT_WRITEFUNCTION, &OnBody);
  curl_.Set(CURLOPT_WRITEDATA, &exchange);
  if (!curl_.AreOptionsTaken()) return Unprepared("the transfer library lacks support for HTTPS");
  curl_.Perform(&answer);
  curl_.Set(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
  curl_off_t seconds = 0;
  (void)curl_easy_getinfo(curl_.get(), CURLINFO_RETRY_AFTER, &seconds);
  answer.retry_after = static_cast<long>(seconds);
  return answer;
}

}  // namespace TAVOCloud
