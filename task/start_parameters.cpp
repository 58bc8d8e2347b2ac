#include "task/start_parameters.h"

#include "support/text.h"
#include "webapi/json_read.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

Json::Value SplitList(const TAVO::APIRequest& request, const Json::Value& value) {
  return StringExplodeEx(value, ",", request.GetAPIVersion(), false);
}

// The first folder counts, further ones are left out.
bool ReadDestination(const TAVO::APIRequest& request, std::string& destSharePath) {
  const Json::Value list = SplitList(request, request.GetParam("dest_folder_path", ""));
  if (list.empty()) return false;
  destSharePath = TextOf(list[0U]);
  return !destSharePath.empty();
}

bool ReadOverwrite(const TAVO::APIRequest& request, StartContext& start) {
  const Json::Value value = request.GetParam("overwrite", "");
  if (value.isBool()) {
    start.overwriteMode = value.asBool() ? CONFLICT_OVERWRITE : CONFLICT_SKIP;
    return true;
  }
  if (!request.HasParam("overwrite")) return true;
  start.overwriteList = SplitList(request, value);
  start.overwriteMode = CONFLICT_SKIP;
  return start.overwriteList.size() == start.sourcePaths.size();
}

bool ReadRename(const TAVO::APIRequest& request, StartContext& start) {
  const Json::Value value = request.GetParam("rename", "");
  if (value.isBool()) {
    start.renameMode = value.asBool();
    return true;
  }
  if (!request.HasParam("rename")) return true;
  start.renameList = SplitList(request, value);
  start.renameMode = true;
  return start.renameList.size() == start.sourcePaths.size();
}

}  // namespace

bool ReadBoolean(const Json::Value& value, bool& out) {
  if (value.isString()) {
    const std::string text = value.asString();
    out = text == "true";
    return out || text == "false";
  }
  if (!value.isNull() && !value.isBool() && !value.isNumeric()) return false;
  out = value.asBool();
  return true;
}

bool ReadStartParameters(const TAVO::APIRequest& request, StartContext& start,
                         std::string& destSharePath) {
  if (!request.HasParam("path") || !request.HasParam("dest_folder_path")) return false;
  if (!ReadDestination(request, destSharePath)) return false;

  bool removeSource = false;
  if (!ReadBoolean(request.GetParam("remove_src", false), removeSource)) return false;
  start.action = removeSource ? ACTION_MOVE : ACTION_COPY;
  if (!ReadBoolean(request.GetParam("accurate_progress", true), _accurateProgress)) return false;

  start.sourcePaths = SplitList(request, request.GetParam("path", ""));
  return ReadOverwrite(request, start) && ReadRename(request, start);
}

}  // namespace Fennox
