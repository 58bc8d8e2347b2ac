// Copying one regular file.
#pragma once

#include "job.h"

namespace fileop {

// Opens the job's source and fills job.st. Negative with the last error set; a
// file that is not regular any more is an error.
[[nodiscard]] int OpenRegular(Job& job);

// How the data gets across.
struct DataWay {
  const _TAVOCOPYARGSEX* hooks = nullptr;  // read-size and data hooks, or null
  bool share_blocks = false;               // by reflink where that works
};

// Copies the file and gives the copy its final name. The name's conflicts have
// been resolved before; one that comes up meanwhile is resolved again.
[[nodiscard]] int CopyRegular(Job& job, const DataWay& way);

}  // namespace fileop
