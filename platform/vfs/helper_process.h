// Running the programs that mount, and watching over one as long as it lives.
#pragma once

#include <sys/types.h>

#include <string>

#include "mount_helper.h"

namespace vfs {

// Runs a program to its end. False when it cannot be run, fails, or does not end in time;
// it is killed then.
[[nodiscard]] bool RunProgram(const Program& program, int seconds, std::string* output);

// Starts a process of its own that runs the helper, passes what it says on to the system
// log, takes the orders of the mount's user, and, when the helper has ended and the folder is no
// mount any more, removes the folder, so that nothing is written into it in the place of the
// server. It keeps in order.scratch: "helper", who they are, and "words", the first of what was
// said. Returns the process's pid, negative with errno set on failure.
pid_t StartHelper(const Program& program, const MountOrder& order, const std::string& name);

// Ends the helper that `scratch` tells of, if it runs, and waits for its watcher's end.
void EndHelper(const std::string& scratch);

// What the helper said at its start.
std::string WordsOfHelper(const std::string& scratch);

// True when the child process `pid` has ended within the time; it is then reaped.
[[nodiscard]] bool EndsWithin(pid_t pid, int milliseconds, int* status);

}  // namespace vfs
