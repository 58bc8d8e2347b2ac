// Opening the two files of a transfer.
#pragma once

#include "core/unique_fd.h"

namespace Fennox {

// Mode of the copies that are written under their path.
inline constexpr unsigned kCopyMode = 0777;

[[nodiscard]] core::UniqueFd OpenSource(const char* path);
// Creates or empties the file.
[[nodiscard]] core::UniqueFd OpenDestination(const char* path);

// Sets the core error of an open that failed because a host or device does not
// answer, by errno. True when it was such a failure.
bool SetUnreachableError(int hostDownLine, int inputOutputLine);

}  // namespace Fennox
