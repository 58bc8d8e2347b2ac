// Telling a remote mount that what it remembers of a file is stale.
#pragma once

namespace Fennox {

// For a new file on a mount. A mount that takes no such mark is asked once only.
void MarkCacheStale(const char* path);

}  // namespace Fennox
