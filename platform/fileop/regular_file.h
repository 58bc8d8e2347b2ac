// Copying one regular file.
#pragma once

#include <string_view>

#include "job.h"

namespace fileop {

// Opens a file without touching its access time where that is allowed, and
// without waiting for anything but another program's lease. -1 with errno.
[[nodiscard]] int OpenQuietly(int folder, const char* name);

// Opens the job's source and fills job.st. Negative with the last error set; a
// file that is not regular any more is an error.
[[nodiscard]] int OpenRegular(Job& job);

// The whole content of a small source that was opened before its turn; else empty.
std::string_view AheadData(const Job& job);

// How the data gets across.
struct DataWay {
  const _TAVOCOPYARGSEX* hooks = nullptr;  // read-size and data hooks, or null
  bool share_blocks = false;               // by reflink where that works
};

// Copies the file and gives the copy its final name. The name's conflicts have
// been resolved before; one that comes up meanwhile is resolved again.
[[nodiscard]] int CopyRegular(Job& job, const DataWay& way);

// What is left to do for a file that was on its way when CopyRegular returned, and has arrived.
[[nodiscard]] int FinishArrived(Job& job);

}  // namespace fileop
