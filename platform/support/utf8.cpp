#include "utf8.h"

#include <strings.h>

#include "core/utf8.h"

namespace support {

namespace {

// Length of the character that `text` begins with; 0 when there is none.
std::size_t CharacterLength(std::string_view text) {
  for (std::size_t length = 1; length <= 4 && length <= text.size(); ++length) {
    if (core::IsUtf8(text.substr(0, length))) return length;
  }
  return 0;
}

}  // namespace

std::string ReplaceInvalidUtf8(std::string_view text) {
  if (core::IsUtf8(text)) return std::string(text);
  std::string out;
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    out += length == 0 ? "\xEF\xBF\xBD" : text.substr(0, length);
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return out;
}

bool IsUtf8Name(std::string_view codePage) {
  const std::string name(codePage);
  return name.empty() || strcasecmp(name.c_str(), "UTF-8") == 0 ||
         strcasecmp(name.c_str(), "UTF8") == 0;
}

}  // namespace support
