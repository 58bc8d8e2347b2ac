// Checks and repair of UTF-8 texts.
#pragma once

#include <string>
#include <string_view>

namespace core {

// True for well-formed UTF-8: no overlong forms, no surrogates, nothing above
// U+10FFFF. NUL is a character like any other.
[[nodiscard]] bool IsUtf8(std::string_view text);

// `text` with each byte that belongs to no well-formed character replaced by U+FFFD.
[[nodiscard]] std::string ReplaceInvalidUtf8(std::string_view text);

}  // namespace core
