// Where automatic mounts lie.
#pragma once

#include <sys/types.h>

#include <string>

#include "core/config.h"

namespace vfs {

// STATE/mounts/UID/NAME with every link resolved; empty without a state folder.
std::string AutoMountFolder(uid_t uid, const std::string& name);

// The pipe that the user gives a helper's watcher orders through, one byte each; empty
// without a state folder.
std::string OrderPipe(uid_t uid, const std::string& name);

// On top of the connect timeout, for a busy machine.
inline constexpr int kGraceSeconds = 5;

// How long a mount may take to answer once it is under suspicion.
inline constexpr int kMostAnswerSeconds = 15;
int AnswerSeconds(const core::RemoteConfig& remote);

// True when something is mounted on exactly that folder. Asks no file system.
[[nodiscard]] bool IsMounted(const std::string& folder);

}  // namespace vfs
