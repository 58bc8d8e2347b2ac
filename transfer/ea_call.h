// The extended-attribute call: companion files carried through the file system.
#pragma once

#include "transfer/transfer_job.h"

namespace Fennox {

// Moves or copies the job's file under its path. A failure is only logged: a
// companion never fails the file that it belongs to. Always 0.
int CarryCompanion(const TransferJob& job);

}  // namespace Fennox
