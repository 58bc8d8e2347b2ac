// Smooth progress out of rare figures: pure functions.
//
// A worker writes its figures at most every five seconds. Between two writes the
// estimate follows the measured transfer rate, for no longer than one such
// interval, so it never runs ahead of what the rate predicts until the next
// write. It never goes back, and only a real figure makes it a whole.
#pragma once

#include <chrono>

#include "host/cli/task_status.h"

namespace cli {

inline constexpr double kWriteInterval = 5.0;  // seconds

struct ProgressModel {
  TaskStatus last;     // the latest write that was seen
  double seen_at = 0;  // when it was first seen, in seconds of any steady clock
  double floor = 0;    // fraction already shown by then
  bool any = false;
};

struct Estimate {
  bool measured = false;
  double fraction = 0;    // 0 to 1
  double remaining = -1;  // seconds, negative when not known
};

// The model after `status` was received at `now`. An answer that repeats the
// figures of the latest write changes nothing.
[[nodiscard]] ProgressModel Observe(const ProgressModel& model, const TaskStatus& status,
                                    double now);

[[nodiscard]] Estimate EstimateAt(const ProgressModel& model, double now);

// Waiting time before the next poll: a short task ends promptly, a long one
// is asked twice a second.
inline constexpr std::chrono::milliseconds kFirstPoll{20};
inline constexpr std::chrono::milliseconds kLastPoll{500};
[[nodiscard]] std::chrono::milliseconds NextPoll(std::chrono::milliseconds current);

}  // namespace cli
