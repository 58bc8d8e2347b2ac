// How many tasks there are, all users together.
#pragma once

#include <cstdint>
#include <string>

#include "core/unique_fd.h"
#include "tasks/store.h"

namespace host {

// What the users' records say, which go away with the answer that reports a task's end or
// after the configured hours; and the totals, which stay.
struct TaskFigures {
  std::int64_t running = 0;
  std::int64_t queued = 0;
  std::int64_t finished = 0;
  std::int64_t failed = 0;
  std::int64_t bytes = 0;  // transferred, as each last reported; a short task ends without a report
  tasks::Totals totals;
};

// Counts in the stores, answers AskFigures and ends the process. Each store is opened by
// a child that has become its owner.
[[noreturn]] void ServeFigures(core::UniqueFd connection);

// Asks over `connection`, whose peer runs ServeFigures. False when there is no answer.
[[nodiscard]] bool AskFigures(int connection, TaskFigures* figures);

}  // namespace host
