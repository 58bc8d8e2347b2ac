// The programs that mount a remote.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "core/config.h"
#include "vfs/trouble.h"

namespace vfs {

// A program to run. Secrets stand in `input` or `environment`, never in `arguments`.
struct Program {
  std::vector<std::string> arguments;    // the first is its name
  std::vector<std::string> environment;  // all of it, NAME=VALUE
  std::string input;                     // its standard input
  bool forgets = false;                  // on SIGHUP, what it remembers of folders
};

struct MountOrder {
  uid_t uid = 0;
  gid_t gid = 0;
  std::string folder;   // where to mount
  std::string scratch;  // a folder that only this process's user can open
  std::string orders;   // where to make the pipe that takes the user's orders
  int patience = 15;    // seconds that the mount may take to answer
};

// How long a helper that lists folders answers from a listing: as long as one file's questions
// take. What a transfer brings past the mount has to wait for that to be seen.
inline constexpr int kListingMilliseconds = 10;

// Orders to the watcher of a helper, which the mount's user may give.
inline constexpr char kOrderToForget = 'f';  // what the helper remembers of folders
inline constexpr char kOrderToEnd = 'e';     // its server hangs

// Prepares what mounts the remote. Trouble when this machine lacks something for it.
[[nodiscard]] Trouble PrepareHelper(const core::RemoteConfig& remote, const MountOrder& order,
                                    Program* program);

// Where programs are looked for.
inline constexpr const char* kProgramPath =
    "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

}  // namespace vfs
