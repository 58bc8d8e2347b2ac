// Connections that carry another library's protocol.
#pragma once

#include <string>

#include "core/unique_fd.h"
#include "flow.h"
#include "ssh_outcome.h"

namespace TAVOCloud {

// Connects to the first of a host's addresses that answers, within `seconds` with the look-up of
// its name, and until `flow`, which may be null, is told to stop. The socket does not block.
SshOutcome ConnectTo(const std::string& host, int port, long seconds, Flow* flow,
                     core::UniqueFd* socket);

}  // namespace TAVOCloud
