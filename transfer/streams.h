// Which way a file's data takes: through the descriptors, or past the mounts.
#pragma once

#include "transfer/transfer_job.h"

namespace Fennox {

// True when the copy between the descriptors is tried first.
[[nodiscard]] bool PrefersDescriptors(const TransferJob& job);

// True when the copier wanted the job's file streamed and its server had no
// connection left for that: the copier then tries again with a descriptor.
[[nodiscard]] bool WasRefusedStreaming(const TransferJob& job);

// Notes that. False when the copier did not want the file streamed.
[[nodiscard]] bool RefuseStreaming(const TransferJob& job);

}  // namespace Fennox
