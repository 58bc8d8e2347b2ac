// What a failed request over SSH means for the file.
#pragma once

#include "failure.h"
#include "ssh_outcome.h"

namespace TAVOCloud {

Failure Explain(const SshOutcome& outcome);

}  // namespace TAVOCloud
