// Checks and repair of UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace support {

// Length of the valid UTF-8 sequence at the start of `text`; 0 when there is none.
std::size_t Utf8SequenceLength(std::string_view text);

bool IsValidUtf8(std::string_view text);

// `text` with each byte that belongs to no valid sequence replaced by U+FFFD.
std::string ReplaceInvalidUtf8(std::string_view text);

// True when `codePage` is a name of UTF-8 (or empty, which stands for it).
bool IsUtf8Name(std::string_view codePage);

}  // namespace support
