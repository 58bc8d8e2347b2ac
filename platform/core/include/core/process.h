// Forking detached workers and telling processes apart.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

// Forks a detached child: new session, working directory "/", standard
// streams to /dev/null (standard error stays when logs are copied to it, see
// core::OpenLog), every other inherited descriptor closed, signal mask
// emptied and SIGTERM, SIGPIPE, SIGCHLD, SIGINT, SIGHUP back to their defaults.
// The child begins on another processor than the caller's (core::MoveToAnotherProcessor).
// Returns the child's pid in the parent, 0 in the child, negative on failure
// (errno set). Call from a process with a single thread.
pid_t VLIBCProcFork();

namespace core {

// Start time of a living process, in clock ticks since boot; together with
// the pid it names a process for good. Empty when there is no such process or
// it is a zombie.
std::optional<std::uint64_t> ProcessStartTime(pid_t pid);

// True while the process lives that had this pid and start time.
[[nodiscard]] bool ProcessRuns(pid_t pid, std::uint64_t start);

// Tells apart process ids that come from different machines or containers.
std::uint32_t MachineId();

// Opens the system log under `ident` (must outlive the process); with
// `to_stderr` every line is also written to standard error, and detached
// children keep that stream.
void OpenLog(const char* ident, bool to_stderr);
bool LogToStderr();

}  // namespace core
