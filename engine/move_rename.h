// One entry's move by rename, and what its failure means.
#pragma once

#include <string>

#include "prepare/entry_records.h"

namespace Fennox {

// Both give MOVE_DONE, MOVE_MUST_COPY when only a copy can move the entry, or
// MOVE_FAILED with the last error set and errno as rename left it.
[[nodiscard]] MoveResult RenameFolder(const std::string& source, const std::string& destination);
[[nodiscard]] MoveResult RenameFile(const std::string& source, const std::string& destination);

}  // namespace Fennox
