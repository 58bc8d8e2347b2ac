#include "utf8.h"

#include <strings.h>

namespace support {

namespace {

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Overlong forms, surrogates and what lies beyond U+10FFFF show in the second byte.
bool SecondByteFits(unsigned char first, unsigned char second) {
  switch (first) {
    case 0xE0:
      return second >= 0xA0;
    case 0xED:
      return second < 0xA0;
    case 0xF0:
      return second >= 0x90;
    case 0xF4:
      return second < 0x90;
    default:
      return true;
  }
}

std::size_t LengthByFirstByte(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return 2;
  if (first >= 0xE0 && first <= 0xEF) return 3;
  if (first >= 0xF0 && first <= 0xF4) return 4;
  return 0;
}

}  // namespace

std::size_t Utf8SequenceLength(std::string_view text) {
  if (text.empty()) return 0;
  const auto first = static_cast<unsigned char>(text[0]);
  const std::size_t length = LengthByFirstByte(first);
  if (length == 0 || length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if (!IsContinuation(static_cast<unsigned char>(text[i]))) return 0;
  }
  if (length > 1 && !SecondByteFits(first, static_cast<unsigned char>(text[1]))) return 0;
  return length;
}

bool IsValidUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = Utf8SequenceLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string ReplaceInvalidUtf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = Utf8SequenceLength(text);
    if (length == 0) {
      out += "\xEF\xBF\xBD";
      text.remove_prefix(1);
    } else {
      out += text.substr(0, length);
      text.remove_prefix(length);
    }
  }
  return out;
}

bool IsUtf8Name(std::string_view codePage) {
  const std::string name(codePage);
  return name.empty() || strcasecmp(name.c_str(), "UTF-8") == 0 ||
         strcasecmp(name.c_str(), "UTF8") == 0;
}

}  // namespace support
