// Copying or moving one entry that is not a folder.
#pragma once

#include "hard_links.h"
#include "job.h"

namespace fileop {

struct EntryWays {
  bool rename = false;         // source and destination are one volume
  HardLinks* links = nullptr;  // names of the tree's files with several links
};

// Carries the entry over by the best way: rename, link, per-file hook, own copy.
// 0 with job.outcome and job.st set, -1 with the last error set.
[[nodiscard]] int CarryEntry(Job& job, const EntryWays& ways);

}  // namespace fileop
