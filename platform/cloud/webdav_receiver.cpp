#include "webdav_receiver.h"

#include <charconv>
#include <optional>

namespace TAVOCloud {
namespace {

constexpr long kPartialContent = 206;

std::string_view WithoutWeakMark(std::string_view etag) {
  return etag.substr(0, 2) == "W/" ? etag.substr(2) : etag;
}

std::optional<std::uint64_t> LengthOf(const HttpAnswer& answer) {
  const std::string text = answer.Header("content-length");
  std::uint64_t length = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), length);
  if (problem != std::errc() || end != text.data() + text.size()) return {};
  return length;
}

}  // namespace

bool WebDavReceiver::Begin() {
  wanted_ = false;
  offset_ = etag_.empty() && modified_.empty() ? 0 : flow_->moved();
  return flow_->SeekTo(offset_) || Refuse("the file cannot be told from a changed one");
}

std::vector<std::string> WebDavReceiver::Headers() const {
  if (offset_ == 0) return {};
  std::vector<std::string> headers = {"Range: bytes=" + std::to_string(offset_) + "-"};
  // Only a strong one can be compared by the server itself.
  if (etag_.starts_with('"')) headers.push_back("If-Range: " + etag_);
  return headers;
}

bool WebDavReceiver::Refuse(const char* words) {
  words_ = words;
  return false;
}

bool WebDavReceiver::IsSameFile(const HttpAnswer& begun) const {
  const std::string etag = begun.Header("etag");
  if (!etag.empty() || !etag_.empty()) return WithoutWeakMark(etag) == WithoutWeakMark(etag_);
  return begun.Header("last-modified") == modified_;
}

bool WebDavReceiver::IsWanted(const HttpAnswer& begun) {
  if (offset_ > 0 && !IsSameFile(begun)) return Refuse("the file has changed on the server");
  const bool part = begun.response == kPartialContent;
  const std::string range = "bytes " + std::to_string(offset_) + "-";
  if (part && !begun.Header("content-range").starts_with(range)) {
    return Refuse("the server sends another part of the file");
  }
  if (!part && !flow_->SeekTo(0)) {
    return Refuse("the server sends the file from its beginning only");
  }
  const std::uint64_t expected = flow_->size() - (part ? offset_ : 0);
  if (LengthOf(begun).value_or(expected) != expected) {
    return Refuse("the file has another size on the server");
  }
  if (etag_.empty()) etag_ = begun.Header("etag");
  if (modified_.empty()) modified_ = begun.Header("last-modified");
  return true;
}

bool WebDavReceiver::Take(const HttpAnswer& begun, std::string_view data) {
  if (!wanted_ && !IsWanted(begun)) return false;
  wanted_ = true;
  if (flow_->moved() + data.size() > flow_->size()) return Refuse("the file has grown");
  return flow_->Put(data.data(), data.size());
}

}  // namespace TAVOCloud
