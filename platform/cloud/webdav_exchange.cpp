#include "webdav_exchange.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace TAVOCloud {
namespace {

constexpr std::size_t kLongestText = 4U << 20U;
constexpr long kOk = 200;
constexpr long kPartialContent = 206;

std::string_view WithoutWeakMark(std::string_view etag) {
  return etag.substr(0, 2) == "W/" ? etag.substr(2) : etag;
}

std::string Trimmed(const std::string& text) {
  constexpr const char* kBlanks = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

}  // namespace

bool IsSameVersion(const FileVersion& one, const FileVersion& other) {
  if (!one.etag.empty() || !other.etag.empty()) {
    return WithoutWeakMark(one.etag) == WithoutWeakMark(other.etag);
  }
  return one.modified == other.modified;
}

std::size_t WebDavExchange::OnHeader(char* data, std::size_t one, std::size_t length,
                                     void* exchange) {
  static_cast<WebDavExchange*>(exchange)->TakeHeader({data, one * length});
  return one * length;
}

std::size_t WebDavExchange::OnBody(char* data, std::size_t one, std::size_t length,
                                   void* exchange) {
  const std::size_t all = one * length;
  return static_cast<WebDavExchange*>(exchange)->TakeBody(data, all) ? all : 0;
}

void WebDavExchange::TakeHeader(std::string line) {
  if (line.starts_with("HTTP/")) {
    // An answer that only comes before the real one tells nothing about the file.
    answer_->version = {};
    answer_->text.clear();
    range_.clear();
    return;
  }
  const std::size_t colon = line.find(':');
  if (colon == std::string::npos) return;
  std::string name = line.substr(0, colon);
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const std::string value = Trimmed(line.substr(colon + 1));
  if (name == "etag") answer_->version.etag = value;
  if (name == "last-modified") answer_->version.modified = value;
  if (name == "content-range") range_ = value;
}

bool WebDavExchange::Refuse(const char* words) {
  answer_->changed = true;
  answer_->words = words;
  return false;
}

bool WebDavExchange::IsWanted(long status) {
  const std::uint64_t offset = request_.offset;
  if (offset > 0 && !IsSameVersion(request_.version, answer_->version)) {
    return Refuse("the file has changed on the server");
  }
  if (status == kPartialContent && !range_.starts_with("bytes " + std::to_string(offset) + "-")) {
    return Refuse("the server sends another part of the file");
  }
  const bool whole = status == kOk;
  if (whole && !request_.download->SeekTo(0)) {
    return Refuse("the server sends the file from its beginning only");
  }
  curl_off_t length = -1;
  (void)curl_easy_getinfo(handle_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  const std::uint64_t expected = request_.download->size() - (whole ? 0 : offset);
  if (length >= 0 && static_cast<std::uint64_t>(length) != expected) {
    return Refuse("the file has another size on the server");
  }
  return true;
}

bool WebDavExchange::TakeBody(const char* data, std::size_t length) {
  long status = 0;
  (void)curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
  if (request_.download == nullptr) {
    if (answer_->text.size() + length > kLongestText) {
      answer_->words = "the server's answer is too long";
      return false;
    }
    answer_->text.append(data, length);
    return true;
  }
  if (status != kOk && status != kPartialContent) return true;
  if (!wanted_ && !IsWanted(status)) return false;
  wanted_ = true;
  Flow& flow = *request_.download;
  if (flow.moved() + length > flow.size()) return Refuse("the file has grown on the server");
  return flow.Put(data, length);
}

}  // namespace TAVOCloud
