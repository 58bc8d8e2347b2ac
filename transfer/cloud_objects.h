// The connections to the servers at both ends of a transfer; kept for the next
// file.
#pragma once

#include "transfer/transfer_job.h"

namespace Fennox {

// The configuration that connections are made by.
inline constexpr int kConfigMode = 1;

// Make the connection when there is none. False when it cannot be made.
[[nodiscard]] bool HaveSourceCloud(const TransferJob& job);
[[nodiscard]] bool HaveDestCloud(const TransferJob& job);

// Drops both connections; the next file makes them again.
void DropClouds();

}  // namespace Fennox
