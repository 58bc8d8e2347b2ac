// What is known of the remote ends of a transfer.
#pragma once

#include "transfer/transfer_job.h"

namespace Fennox {

// Fill the job's side from the mount that holds its path; the source's
// parameters are looked up once per top-level source, the destination's for
// every file. Each may switch the single-connection flag on. False (logged)
// when the mount cannot be told.
[[nodiscard]] bool FindSourceParams(TransferJob& job);
[[nodiscard]] bool FindDestParams(TransferJob& job);
// Both, for the sides that are remote, before the transfer itself: nothing is
// logged, and the source's parameters are not remembered.
[[nodiscard]] bool LookAtParams(TransferJob& job);

}  // namespace Fennox
