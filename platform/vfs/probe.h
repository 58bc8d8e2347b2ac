// Asking what is mounted on a folder, whoever hangs behind it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

namespace vfs {

// A mount that fails a probe sooner holds nobody up: not now, and not whoever asks next.
inline constexpr std::chrono::seconds kQuickFailure{1};

// Makes what is mounted there ask its server; 0 or an errno.
int LookInto(const std::string& folder);

// The same in a child, which exits with the errno. Its pid, negative with errno set on
// failure. As long as the mount hangs it may not even be killed.
pid_t StartProbe(const std::string& folder);

// The same and waits for it, so that a mount that hangs holds up nobody: ETIMEDOUT then.
int Probe(const std::string& folder, int seconds);

}  // namespace vfs
