// Names under which unfinished files and folders stand, and how to tell which
// of them nobody works on any more.
#pragma once

#include <string>

namespace fileop {

// A fresh name ".fennox-MACHINE-PID-START-NUMBER", all lower-case hexadecimal.
// The process that it names owns what stands under it.
std::string MakeTempName();

enum class TempOwner {
  kNone,     // no name of ours
  kLiving,   // its process runs, or may be running
  kGone,     // its process has ended
  kForeign,  // made on another machine, or in another container
};
TempOwner OwnerOfTempName(const char* name);

// Removes what ended processes left in the folder: unfinished files, and
// unfinished folders with their files. What it may not remove stays. Such things
// never hold the only copy of anything. Does not change errno.
void CleanLeftovers(int folder);

}  // namespace fileop
