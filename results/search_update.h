// Keeping a file-search index up to date with what was copied or moved.
#pragma once

#include <string>

#include "prepare/entry_records.h"
#include "support/search_index.h"

namespace Fennox {

struct SearchUpdate {
  _tag_action_type_ action;
  int overwriteMode;   // request-wide ConflictMode
  bool inSearchScope;  // the destination lies inside the search
  bool destExisted;
  std::string srcShare;
  std::string srcPath;
  std::string destShare;
  std::string destPath;
};

// First component of a share path: "/photos/2020/a.jpg" gives "photos".
std::string ShareNameOf(const std::string& sharePath);

void UpdateSearchIndex(const SearchUpdate& update, FileSearch::WfmSearchDBTask& index);

}  // namespace Fennox
