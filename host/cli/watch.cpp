// Following all tasks at once, and completing paths.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>

#include "host/cli/commands.h"
#include "host/cli/folder_pages.h"
#include "host/cli/follow.h"
#include "host/cli/format.h"
#include "host/cli/interrupt.h"
#include "host/cli/listing.h"
#include "host/cli/refusal.h"
#include "host/cli/task_status.h"

namespace cli {
namespace {

constexpr double kPause = 1;  // seconds between two questions
constexpr double kSlice = 0.05;
constexpr double kPatience = 30;

// Shows the latest text: in the place of the one before on a terminal, after it
// otherwise, and then only when it changed.
class Board {
 public:
  Board() : terminal_(::isatty(STDOUT_FILENO) == 1) {}

  void Show(const std::string& text) {
    if (shown_ && text == last_) return;
    // Up to the first line of the text before, and everything below it away.
    if (terminal_ && lines_ > 0) std::cout << "\x1b[" << lines_ << "A\r\x1b[J";
    std::cout << text << std::flush;
    lines_ = std::count(text.begin(), text.end(), '\n');
    last_ = text;
    shown_ = true;
  }

 private:
  bool terminal_;
  bool shown_ = false;
  std::ptrdiff_t lines_ = 0;
  std::string last_;
};

std::string BoardText(const Json::Value& tasks, bool json) {
  if (json) return ToJsonLine(tasks) + "\n";
  const std::string table = TaskTable(tasks);
  return table.empty() ? "No tasks.\n" : table;
}

// False when the user interrupted.
bool Pause(const FollowHooks& hooks) {
  const double until = hooks.clock() + kPause;
  while (hooks.clock() < until) {
    if (hooks.interrupted()) return false;
    hooks.sleep(kSlice);
  }
  return true;
}

}  // namespace

int RunWatch(Client* client, const Options& options) {
  CatchInterrupt();
  const FollowHooks hooks = HooksFor(client, "");
  Board board;
  double answered = hooks.clock();
  do {
    Json::Value tasks;
    CallError error;
    if (client->Get("tasks", {}, &tasks, &error)) {
      answered = hooks.clock();
      board.Show(BoardText(tasks, options.json));
      if (options.until_idle && !AnyRuns(tasks)) return kExitDone;
    } else if (!error.Passing() || hooks.clock() - answered > kPatience) {
      return Refuse(error, "");
    }
  } while (Pause(hooks));
  return kExitStopped;
}

int RunCompletePath(Client* client, const Options& options) {
  const std::string& prefix = options.target;
  const std::size_t slash = prefix.rfind('/');
  std::string folder = slash == std::string::npos ? "" : prefix.substr(0, slash);
  Json::Value data;
  CallError error;
  // "sftp://name" and "/share" come from the list of shares, what lies below from folders.
  const bool top =
      slash == std::string::npos || folder.empty() || folder.back() == '/' || folder.back() == ':';
  // The top folder of a remote mount keeps its last slash.
  const std::size_t scheme = folder.find("://");
  if (scheme != std::string::npos && folder.find('/', scheme + 3) == std::string::npos) {
    folder += '/';
  }
  if (top) {
    if (!client->Get("shares", {}, &data, &error)) return kExitRefused;
    for (const Json::Value& share : data) {
      const std::string path = TextOf(share, "path");
      const std::string shown = path.ends_with('/') ? path : path + "/";
      if (shown.starts_with(prefix)) std::cout << Printable(shown) << "\n";
    }
    return kExitDone;
  }
  const auto print = [&](const Json::Value& page) {
    for (const Json::Value& entry : page["entries"]) {
      const std::string path = prefix.substr(0, slash + 1) + TextOf(entry, "name");
      if (!path.starts_with(prefix)) continue;
      std::cout << Printable(path) << (TextOf(entry, "type") == "folder" ? "/" : "") << "\n";
    }
  };
  return EachPage(client, folder, print, &error) ? kExitDone : kExitRefused;
}

}  // namespace cli
