// The ladder of ways to move a file's data, and what is remembered about it.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string_view>

#include "pacer.h"

namespace fileop {

// What is known of a pair of file systems, most of it taught by an earlier file.
struct PairMemory {
  bool shares_no_blocks = false;
  bool no_kernel_copy = false;  // copy_file_range is refused, or the slower way
  bool reserves = false;        // blocks of a large file are cheaper asked for ahead of its data
};

// The calling thread's memory of the pair of file systems behind two descriptors;
// lives as long as the thread.
PairMemory& MemoryOfPair(int src, int dst);

// Everything the ladder has to know.
struct DataJob {
  int src = -1;
  int dst = -1;
  long long expected = 0;               // size of the source as the caller knows it
  const struct stat* src_st = nullptr;  // a recent fstat of `src`, or null
  bool dst_is_new = false;              // `dst` is a new, empty regular file
  std::string_view ahead{};             // the source's whole content if it was read before
  bool end_proven = false;              // out: copied exactly up to the source's end
};

// Moves the data from the descriptors' current offsets to the source's end. 0 on
// success; -1 with the last error set; short or cut sources are failures.
[[nodiscard]] int MoveAllData(DataJob* job, Pacer* pacer);

// Only the sharing of blocks, for a new file. 1 when done, 0 when that does not
// work here, -1 on failure.
[[nodiscard]] int ShareAllData(DataJob* job, Pacer* pacer);

}  // namespace fileop
