// What happens when the name at the destination is taken.
#pragma once

#include "job.h"

namespace fileop {

enum class Verdict {
  kGo,    // to_name may be used; job.replace says how
  kSkip,  // leave both as they are
  kFail,  // the last error is set
};

// Looks at what stands under job.to_name and applies the policy; may change
// to_name to a free one.
Verdict ResolveConflict(Job& job);

// Moves the job's entry by rename. 0 with job.outcome set, 1 when only a copy
// can do it, -1 on failure.
[[nodiscard]] int TryRename(Job& job);

}  // namespace fileop
