// Companion files: "@eaDir/NAME" and "@eaDir/NAME@…" belong to the entry NAME
// beside "@eaDir".
#pragma once

#include <string>
#include <vector>

#include "fileop/copy.h"
#include "folder.h"

namespace fileop {

// The names in the companion folder that was last asked about, so that many
// entries of one folder cost one listing.
class CompanionIndex {
 public:
  // Names of the companions of `name`, with `folder` the opened "@eaDir".
  std::vector<std::string> Of(int folder, const std::string& name);

 private:
  Identity listed_;
  std::vector<std::string> names_;  // sorted
};

// Carries the companions of a top-level entry to the entry's new place by the
// hook. What fails is left out.
void CarryCompanions(CompanionIndex& index, TAVOCopyEAHook hook, SourceFolder& from_parent,
                     const std::string& name, const TargetFolder& to_parent,
                     const std::string& to_name);

}  // namespace fileop
