// Checks of UTF-8 texts.
#pragma once

#include <string_view>

namespace core {

// True for well-formed UTF-8: no overlong forms, no surrogates, nothing above
// U+10FFFF. NUL is a character like any other.
[[nodiscard]] bool IsUtf8(std::string_view text);

}  // namespace core
