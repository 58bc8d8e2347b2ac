// Telling a remote mount that what it remembers of a file is stale.
#pragma once

namespace Fennox {

// For a new file on a mount. Notes when the mount takes no such marks.
void MarkCacheStale(const char* path);

}  // namespace Fennox
