#include "engine/search_lookup.h"

#include <algorithm>

#include "tasks/task.h"
#include "webapi/json_read.h"
#include "webapi/log.h"

namespace Fennox {
namespace {

// The search task's "data"; null when there is no such task.
Json::Value SearchTaskData(const std::string& user, const std::string& taskId) {
  try {
    KVX::TaskMgr registry(user.c_str());
    const std::unique_ptr<KVX::Task> task(registry.getTaskWithThrow(taskId.c_str()));
    return task ? task->getProperty("data") : Json::Value();
  } catch (...) {
    LogError(1804, "No such search task id");
    return Json::Value();
  }
}

bool DescribesSearch(const Json::Value& data) {
  return data.isObject() && data.isMember("sdbid") && data.isMember("sdbvol") &&
         data.isMember("location");
}

bool LiesInLocation(FennoxMVCPHandler& handler, const std::string& path,
                    const Json::Value& locations) {
  if (!locations.isArray()) return false;
  return std::any_of(locations.begin(), locations.end(), [&](const Json::Value& location) {
    return location.isString() && handler.IsSubPath(path, location.asString());
  });
}

}  // namespace

SearchFollowUp FindSearchTask(FennoxMVCPHandler& handler, const std::string& destSharePath,
                              FileSearch::WfmSearchDBTaskMgr& indexes) {
  SearchFollowUp found;
  const TAVO::APIRequest& request = *handler.apiRequest();
  if (!request.HasParam("search_taskid")) return found;

  const Json::Value data =
      SearchTaskData(request.GetLoginUserName(), TextOf(request.GetParam("search_taskid", "")));
  if (!DescribesSearch(data)) return found;
  found.index.reset(indexes.getDBTask(TextOf(data["sdbvol"]), TextOf(data["sdbid"])));
  found.destInScope = LiesInLocation(handler, destSharePath, data["location"]);
  return found;
}

}  // namespace Fennox
