#include "list_page.h"

#include <unicode/ucol.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <utility>

namespace host {
namespace {

// A query brings texts, a JSON body may bring values.
std::optional<bool> AsBool(const Json::Value& value) {
  if (value.isBool()) return value.asBool();
  if (value == Json::Value("true")) return true;
  if (value == Json::Value("false")) return false;
  return std::nullopt;
}

std::optional<std::size_t> AsCount(const Json::Value& value) {
  std::size_t count = 0;
  if (value.isUInt64()) {
    count = value.asUInt64();
  } else if (value.isString()) {
    const std::string text = value.asString();
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  }
  if (count < 1 || count > kMostEntries) return std::nullopt;
  return count;
}

std::optional<ListRequest::Sort> AsSort(const Json::Value& value) {
  if (value == Json::Value("name")) return ListRequest::Sort::kName;
  if (value == Json::Value("size")) return ListRequest::Sort::kSize;
  if (value == Json::Value("time")) return ListRequest::Sort::kTime;
  return std::nullopt;
}

std::string ToHex(const std::string& bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 15U];
  }
  return text;
}

std::optional<std::string> FromHex(const Json::Value& value) {
  if (!value.isString() || value.asString().size() % 2 != 0) return std::nullopt;
  const std::string text = value.asString();
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    unsigned byte = 0;
    const auto [end, error] = std::from_chars(&text[i], &text[i] + 2, byte, 16);
    if (error != std::errc() || end != &text[i] + 2) return std::nullopt;
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

std::optional<std::vector<std::string>> AsNames(const Json::Value& value) {
  const Json::Value list = value.isString() ? Json::Value(Json::arrayValue) : value;
  if (!list.isArray() || list.size() > kMostEntries) return std::nullopt;
  std::vector<std::string> names;
  if (value.isString()) names.push_back(value.asString());
  for (const Json::Value& name : list) {
    if (!name.isString()) return std::nullopt;
    names.push_back(name.asString());
  }
  for (const std::string& name : names) {
    if (name.empty() || name == "." || name == "..") return std::nullopt;
    if (name.find_first_of(std::string_view("/\0", 2)) != std::string::npos) return std::nullopt;
  }
  return names;
}

// Takes a parameter that is there. False when it is wrong.
template <typename T, typename Read>
bool Get(const Json::Value& params, const char* name, Read read, T* out, std::string* err) {
  if (!params.isMember(name)) return true;
  std::optional<T> value = read(params[name]);
  if (!value) {
    *err = std::string("\"") + name + "\" is wrong";
    return false;
  }
  *out = std::move(*value);
  return true;
}

void AppendBigEndian(std::uint64_t value, std::string* out) {
  for (int shift = 56; shift >= 0; shift -= 8) *out += static_cast<char>(value >> shift);
}

}  // namespace

bool IsHidden(const std::string& name) { return name.front() == '.' || name == "@eaDir"; }

bool ReadListRequest(const Json::Value& params, ListRequest* out, std::string* err) {
  out->only_names = params.isMember("names");
  return Get(params, "sort", AsSort, &out->sort, err) &&
         Get(params, "descending", AsBool, &out->descending, err) &&
         Get(params, "hidden", AsBool, &out->hidden, err) &&
         Get(params, "limit", AsCount, &out->limit, err) &&
         Get(params, "after", FromHex, &out->after, err) &&
         Get(params, "names", AsNames, &out->names, err);
}

// The order of names, the one that browsers have: the same library sorts there.
class ListPage::Names {
 public:
  Names() {
    UErrorCode status = U_ZERO_ERROR;
    collator_ = ::ucol_open("", &status);
    ::ucol_setStrength(collator_, UCOL_PRIMARY);
    ::ucol_setAttribute(collator_, UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
    usable_ = U_SUCCESS(status) != 0;
  }
  ~Names() { ::ucol_close(collator_); }
  Names(const Names&) = delete;
  Names& operator=(const Names&) = delete;

  // Appends bytes that sort as the names do, with an end that is in none of them.
  void Append(const std::string& name, std::string* out) {
    UErrorCode status = U_ZERO_ERROR;
    std::int32_t units = 0;
    if (usable_) {
      ::u_strFromUTF8WithSub(units_.data(), static_cast<std::int32_t>(units_.size()), &units,
                             name.data(), static_cast<std::int32_t>(name.size()), 0xFFFD, nullptr,
                             &status);
    }
    if (!usable_ || U_FAILURE(status) != 0) {
      *out += name;
      *out += '\0';
      return;
    }
    const std::size_t begin = out->size();
    out->resize(begin + 4 * name.size() + 64);
    const auto key = [&] {
      return static_cast<std::size_t>(::ucol_getSortKey(
          collator_, units_.data(), units, reinterpret_cast<std::uint8_t*>(out->data() + begin),
          static_cast<std::int32_t>(out->size() - begin)));
    };
    std::size_t length = key();
    if (length > out->size() - begin) {
      out->resize(begin + length);
      length = key();
    }
    out->resize(begin + length);
  }

 private:
  UCollator* collator_ = nullptr;
  bool usable_ = false;
  std::array<UChar, 1024> units_{};
};

ListPage::ListPage(const ListRequest& request)
    : request_(request), names_(std::make_unique<Names>()) {}
ListPage::~ListPage() = default;

void ListPage::SetOrder(ListEntry* entry) {
  std::string& order = entry->order;
  order = S_ISDIR(entry->mode) ? '0' : '1';
  if (request_.sort == ListRequest::Sort::kSize) AppendBigEndian(entry->size, &order);
  if (request_.sort == ListRequest::Sort::kTime) {
    // Times before 1970 are below the others.
    AppendBigEndian(static_cast<std::uint64_t>(entry->mtime) ^ (1ULL << 63U), &order);
  }
  names_->Append(entry->name, &order);
  if (request_.descending) {
    std::transform(order.begin() + 1, order.end(), order.begin() + 1,
                   [](char byte) { return static_cast<char>(~byte); });
  }
  order += entry->name;
}

void ListPage::Offer(ListEntry entry) {
  if (!request_.hidden && IsHidden(entry.name)) {
    ++left_out_;
    return;
  }
  ++total_;
  SetOrder(&entry);
  if (!request_.after.empty() && entry.order <= request_.after) return;
  if (!bound_.empty() && entry.order > bound_) return;
  kept_.push_back(std::move(entry));
  if (kept_.size() >= 2 * request_.limit + 1) Trim();
}

// Keeps the page's first entries only.
void ListPage::Trim() {
  if (kept_.size() <= request_.limit) return;
  const auto last = kept_.begin() + static_cast<std::ptrdiff_t>(request_.limit) - 1;
  std::nth_element(kept_.begin(), last, kept_.end(),
                   [](const auto& a, const auto& b) { return a.order < b.order; });
  bound_ = last->order;
  kept_.erase(last + 1, kept_.end());
  more_ = true;
}

std::vector<ListEntry> ListPage::Take(std::string* next) {
  Trim();
  std::sort(kept_.begin(), kept_.end(),
            [](const auto& a, const auto& b) { return a.order < b.order; });
  *next = more_ ? ToHex(kept_.back().order) : "";
  return std::move(kept_);
}

}  // namespace host
