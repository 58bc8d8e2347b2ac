// What happens when the name at the destination is taken.
#pragma once

#include <optional>

#include "job.h"

namespace fileop {

// Looks at what stands under job.to_name and applies the policy. Empty when the
// job may go on: to_name (perhaps changed to a free one) may be used, and
// job.replace says how. Otherwise the job's result: 0 when both are left as they
// are (job.outcome says so), -1 with the last error set.
[[nodiscard]] std::optional<int> SettleConflict(Job& job);

// Moves the job's entry by rename. 0 with job.outcome set, 1 when only a copy
// can do it, -1 on failure.
[[nodiscard]] int TryRename(Job& job);

}  // namespace fileop
