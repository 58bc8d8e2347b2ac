// Transfers through the cloud library.
#pragma once

#include "transfer/transfer_job.h"

namespace Fennox {

enum class CloudResult {
  kDone,
  kFailed,   // the descriptor copy may still help
  kRefused,  // nothing more to try; the last error tells why
};

// Picks the transfer by the two ends: download, upload, server to server, or
// none (failed). Closes the descriptors that it does not need.
[[nodiscard]] CloudResult RunCloudTransfer(TransferJob& job);

// Makes a kept descriptor ready for another transfer: back to its start, and
// emptied when it is written to.
void RestartSource(int fd);
void RestartDestination(int fd);

}  // namespace Fennox
