// The folders around both ends of a top-level path.
#pragma once

#include <string>

#include "folder.h"

namespace fileop {

struct Ends {
  SourceFolder from;
  TargetFolder to;
  std::string name;
  std::string to_name;
};

// Opens the folders around both paths. Folders that `ends` has from the path before
// stay open when they still are what their paths name. -1 with the last error set.
[[nodiscard]] int OpenEnds(const char* src, const char* dst, Ends* ends);

// Asks what a copy has to know about both folders, each time anew, since rights and
// what new entries inherit may have changed; a rename needs none of it. `removes`: the
// source will be removed. -1 with the last error set.
[[nodiscard]] int DescribeEnds(bool removes, Ends* ends);

}  // namespace fileop
