// Counts over all of a user's tasks: they stay when records go.
#pragma once

#include <cstdint>

#include "database.h"

namespace tasks::internal {

inline constexpr const char* kTotalStarted = "started";
inline constexpr const char* kTotalFinished = "finished";
inline constexpr const char* kTotalFailed = "failed";
inline constexpr const char* kTotalStopped = "stopped";
inline constexpr const char* kTotalBytes = "bytes";

// Adds to a total, inside the transaction that makes it true.
[[nodiscard]] Result AddToTotal(Database& database, const char* name, std::int64_t number);

}  // namespace tasks::internal
