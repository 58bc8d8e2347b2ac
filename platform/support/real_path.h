// Canonical paths, links followed, and the mounts that hold them.
#pragma once

#include <string>

namespace support {

// The canonical form of an existing path. False with errno set.
[[nodiscard]] bool RealPath(const std::string& path, std::string* out);

// Finds where `rest` ("a/b/c", well-formed) lies below the folder `root`: links
// are followed in all components but the last, which need not exist. Gives a
// canonical path at or below the canonical root (written to *base). WEBFM_OK or
// the reason why not.
[[nodiscard]] int ResolveBelow(const std::string& root, const std::string& rest, std::string* base,
                               std::string* out);

// Mount point of the file system that holds a canonical path, whose last
// component need not exist.
std::string MountPointOf(const std::string& path);

}  // namespace support
