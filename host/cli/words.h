// Errors and results in words.
#pragma once

#include <string>
#include <vector>

#include "host/cli/client.h"
#include "host/cli/task_status.h"

namespace cli {

// "The file or folder does not exist (460)": the reason of a code, with the code.
std::string Reason(int code);

// "/photos/a: The file or folder does not exist (460)", printable.
std::string FailureLine(const Failure& failure);

// What went wrong with a call: the error, then a line for each path of its detail.
std::vector<std::string> ErrorLines(const CallError& error);

// "1.2 GB of 2.8 GB  210 MB/s" or "3 of 9 entries", of which `fraction` is done.
std::string Amount(const TaskStatus& status, double fraction);
// What a task does that has no measure yet: "waiting", "30 files, 1.2 MB" found.
std::string Unmeasured(const TaskStatus& status);

// One line about a task that still runs: " 43 %  1.2 GB of 2.8 GB …".
std::string StatusLine(const TaskStatus& status);

enum class Action { kTransfer, kCopy, kMove };

// One sentence about a task that has finished.
std::string ResultLine(Action action, const TaskStatus& status, double seconds);

}  // namespace cli
