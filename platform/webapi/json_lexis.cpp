#include "json_lexis.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace webapi {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsNumberPart(char c) {
  return IsDigit(c) || std::string_view("+-.eE").find(c) != std::string_view::npos;
}

// Takes digits off the front; false when there are none.
bool TakeDigits(std::string_view* text) {
  const auto end = std::find_if_not(text->begin(), text->end(), IsDigit);
  const auto count = static_cast<std::size_t>(end - text->begin());
  text->remove_prefix(count);
  return count > 0;
}

bool IsNumber(std::string_view text) {
  if (text.starts_with('-')) text.remove_prefix(1);
  const bool zero_first = text.starts_with('0');
  const std::size_t before = text.size();
  if (!TakeDigits(&text)) return false;
  if (zero_first && before - text.size() > 1) return false;
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    if (!TakeDigits(&text)) return false;
  }
  if (text.starts_with('e') || text.starts_with('E')) {
    text.remove_prefix(1);
    if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
    if (!TakeDigits(&text)) return false;
  }
  return text.empty();
}

// Value of the escape "\uXXXX" at the front, -1 when there is none.
int UnicodeEscape(std::string_view text) {
  constexpr std::size_t kLength = 6;
  if (text.size() < kLength || text[0] != '\\' || text[1] != 'u') return -1;
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data() + 2, text.data() + kLength, value, 16);
  return error == std::errc() && end == text.data() + kLength ? static_cast<int>(value) : -1;
}

// Length of the escape at the front; 0 when JSON does not allow it.
std::size_t EscapeLength(std::string_view text) {
  constexpr std::string_view kSimple = "\"\\/bfnrt";
  constexpr std::size_t kUnicode = 6;
  if (text.size() < 2) return 0;
  if (text[1] != 'u') return kSimple.find(text[1]) != std::string_view::npos ? 2 : 0;
  const int unit = UnicodeEscape(text);
  if (unit < 0 || (unit >= 0xDC00 && unit <= 0xDFFF)) return 0;
  if (unit < 0xD800 || unit > 0xDBFF) return kUnicode;
  const int low = UnicodeEscape(text.substr(kUnicode));
  return low >= 0xDC00 && low <= 0xDFFF ? 2 * kUnicode : 0;
}

// Takes the rest of a string and its closing quote off the front.
bool TakeString(std::string_view* text) {
  while (!text->empty()) {
    const char c = text->front();
    if (static_cast<unsigned char>(c) < 0x20) return false;
    const std::size_t length = c == '\\' ? EscapeLength(*text) : 1;
    if (length == 0) return false;
    text->remove_prefix(length);
    if (c == '"') return true;
  }
  return false;
}

}  // namespace

bool HasJsonLexis(std::string_view text) {
  while (!text.empty()) {
    const char c = text.front();
    if (c == '"') {
      text.remove_prefix(1);
      if (!TakeString(&text)) return false;
    } else if (IsDigit(c) || c == '-' || c == '+') {
      const auto end = std::find_if_not(text.begin(), text.end(), IsNumberPart);
      const auto length = static_cast<std::size_t>(end - text.begin());
      if (!IsNumber(text.substr(0, length))) return false;
      text.remove_prefix(length);
    } else if (c == '\0') {
      return false;  // the parser takes it for the end
    } else {
      text.remove_prefix(1);
    }
  }
  return true;
}

}  // namespace webapi
