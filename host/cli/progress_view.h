// How a running task is shown.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "host/cli/progress_model.h"

namespace cli {

// One line about a running task in at most `columns` columns. `clock` moves the
// unmeasured bar.
std::string ProgressLine(const TaskStatus& status, const Estimate& estimate, double clock,
                         std::size_t columns);

class ProgressView {
 public:
  virtual ~ProgressView() = default;
  // Called often. `clock` is in seconds and steady.
  virtual void Show(const ProgressModel& model, double clock) = 0;
  // Nothing more is shown; leaves the stream at the start of a line.
  virtual void End() = 0;
};

// A bar that redraws itself when `stream` is a terminal, else one plain line
// for each new figure.
std::unique_ptr<ProgressView> MakeProgressView(std::FILE* stream);

}  // namespace cli
