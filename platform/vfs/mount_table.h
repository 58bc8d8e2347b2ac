// The mounts that are in place, and which of them holds a path.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/config.h"
#include "vfs/vfs.h"

namespace vfs {

using MountTable = std::vector<MountInfo>;

// The mounts of the given remotes: those whose `mount` is an existing folder, and those
// that are mounted automatically for the user at this moment.
MountTable MountsOf(const std::vector<core::RemoteConfig>& remotes, uid_t uid);

// The mount whose base URI begins `path` (or is `path` without its last slash).
std::optional<MountInfo> FindByUri(const MountTable& table, const std::string& path);

// The innermost mount whose folder is `path` or holds it.
std::optional<MountInfo> FindByLocalPath(const MountTable& table, const std::string& path);

// Base URI "PROTOCOL://NAME/" of a path that is written like one on a mount,
// whether there is such a mount or not.
std::optional<std::string> BaseUriOf(const std::string& path);

}  // namespace vfs
