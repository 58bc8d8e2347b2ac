// Whether the servers behind a source and a destination still answer.
#pragma once

#include <string>

#include "failure.h"

namespace fileop {

// True when a failure may come from a server that is gone or hangs, and the one behind
// the mount of either path does not answer when it is asked; see vfs::MountAnswers. Costs
// nothing for other failures.
[[nodiscard]] bool IsServerLost(const Failure& failure, const std::string& src,
                                const std::string& dst);

// What is reported then, whichever call was the one to fail.
Failure ServerLost();

}  // namespace fileop
