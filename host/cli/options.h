// What the user asked for on the command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cli {

enum class Command {
  kCopy,
  kMove,
  kStatus,
  kStop,
  kList,
  kWatch,
  kLog,
  kLs,
  kTaskShow,
  kRemoteList,
  kRemoteCheck,
  kLogin,
  kLogout,
  kCompletePath,
};

// What happens to a source whose name is taken at the destination.
enum class Conflict { kRefuse, kOverwrite, kSkip, kRename };

struct Options {
  Command command = Command::kList;
  std::vector<std::string> sources;
  std::string target;  // destination, task id, path or user, as the command takes it
  int limit = 100;     // lines of the log
  Conflict conflict = Conflict::kRefuse;
  bool accurate_progress = true;
  bool detach = false;
  bool watch = false;
  bool until_idle = false;  // watch ends when no task runs
  bool json = false;
  bool everywhere = false;  // logout ends every session of the user
};

// Exit statuses of every command.
inline constexpr int kExitDone = 0;
inline constexpr int kExitFailures = 1;
inline constexpr int kExitRefused = 2;
inline constexpr int kExitStopped = 130;

// Fills *options from the arguments. An exit status when the program is to end
// here: 0 after --help or --version, 2 after a usage error, which is printed.
std::optional<int> ParseOptions(int argc, const char* const* argv, Options* options);

}  // namespace cli
