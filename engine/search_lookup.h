// The search task whose results follow the files of this request.
#pragma once

#include <memory>
#include <string>

#include "support/search_index.h"
#include "webapi/handler.h"

namespace Fennox {

struct SearchFollowUp {
  std::unique_ptr<FileSearch::WfmSearchDBTask> index;  // null: nothing to follow
  bool destInScope = false;  // the destination lies in a searched location
};

// Reads the task named by "search_taskid". A missing task is logged and means
// that there is nothing to follow.
[[nodiscard]] SearchFollowUp FindSearchTask(FennoxMVCPHandler& handler,
                                            const std::string& destSharePath,
                                            FileSearch::WfmSearchDBTaskMgr& indexes);

}  // namespace Fennox
