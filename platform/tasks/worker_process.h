// Telling a record's worker from a process that got its pid later.
#pragma once

#include <cstdint>
#include <optional>

namespace tasks::internal {

// True when `pid` runs and started at `start`. A worker whose start is not
// known was gone when its pid was recorded.
bool WorkerRuns(std::int64_t pid, std::optional<std::int64_t> start);

}  // namespace tasks::internal
