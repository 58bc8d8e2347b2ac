// The second way, for a transfer that failed because its FTP server would not
// open one more connection.
#pragma once

#include "transfer/transfer_job.h"

namespace Fennox {

// Copies through the mount when that was the reason: 0 on success. Negative
// otherwise, with the errors of the failed transfer or of the new attempt. Drops the
// connections of FTP transfers.
[[nodiscard]] int CopyAfterFailedTransfer(TransferJob& job);

}  // namespace Fennox
