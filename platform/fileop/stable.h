// Getting what was written onto stable storage.
#pragma once

#include "core/unique_fd.h"

namespace fileop {

// A descriptor by which the file system that `folder` is on can be synced; the
// folder may have been opened for nothing but its path. Invalid with errno.
[[nodiscard]] core::UniqueFd OpenForSync(int folder);

// Writes everything that the file system behind `fd` (from OpenForSync) holds to
// stable storage. 0 only when it is there; -1 with errno.
[[nodiscard]] int SyncVolume(int fd);

// The same for one file's data.
[[nodiscard]] int SyncData(int fd);

}  // namespace fileop
