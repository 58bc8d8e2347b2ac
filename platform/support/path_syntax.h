// The rules that every path keeps, whatever it lies on.
#pragma once

#include <string_view>
#include <vector>

namespace support {

inline constexpr std::size_t kMaxPath = 4096;      // bytes
inline constexpr std::size_t kMaxComponent = 255;  // bytes

// Splits "a/b/c" into its components; the empty text has none. WEBFM_OK, or why
// the text cannot be a path: WEBFM_ILLEGAL_NAME (an empty component, ".", "..",
// a NUL) or WEBFM_NAME_TOO_LONG.
[[nodiscard]] int SplitPath(std::string_view path, std::vector<std::string_view>* components);

// True when `path` is `base` or lies below it.
bool IsAtOrBelow(std::string_view path, std::string_view base);

}  // namespace support
