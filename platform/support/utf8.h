// Repair of UTF-8, and the names that it goes by.
#pragma once

#include <string>
#include <string_view>

namespace support {

// `text` with each byte that belongs to no valid character replaced by U+FFFD.
std::string ReplaceInvalidUtf8(std::string_view text);

// True when `codePage` is a name of UTF-8 (or empty, which stands for it).
bool IsUtf8Name(std::string_view codePage);

}  // namespace support
