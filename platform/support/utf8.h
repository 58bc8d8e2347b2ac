// The names that UTF-8 goes by.
#pragma once

#include <string_view>

namespace support {

// True when `codePage` is a name of UTF-8 (or empty, which stands for it).
bool IsUtf8Name(std::string_view codePage);

}  // namespace support
