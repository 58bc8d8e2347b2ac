// What holds for every path of a request.
#pragma once

#include <cstddef>

namespace Fennox {

// The checks that WfmCheckPath shall make.
inline constexpr int kPathChecks = 32;

// Bytes, without the closing NUL.
inline constexpr std::size_t kLongestPath = 4096;

}  // namespace Fennox
