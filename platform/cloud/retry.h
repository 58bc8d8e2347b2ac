// How often something is tried again that failed in passing, and after what pause.
#pragma once

#include "flow.h"

namespace TAVOCloud {

constexpr int kMostAttempts = 6;  // over connections that break
constexpr int kMostRefusals = 4;  // by a server that cannot now

// Waits after the attempt of that number, counted from 1: longer each time, and as
// long as the server has ordered, within bounds. Not beyond a stop of `flow`, which
// may be null; false then.
[[nodiscard]] bool PauseAfter(int attempt, Flow* flow, long ordered_seconds = 0);

}  // namespace TAVOCloud
