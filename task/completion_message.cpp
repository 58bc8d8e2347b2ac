#include "task/completion_message.h"

#include <string>

#include "support/text.h"
#include "webapi/module_state.h"
#include "webapi_runtime/web_utils.h"

namespace Fennox {
namespace {

// With no sources at all, all of them were skipped.
const char* SkipStatus(std::int64_t skipped) {
  if (static_cast<std::uint64_t>(skipped) == _srcPathInfos.size()) return "all";
  return skipped == 0 ? "none" : "some";
}

std::string KeySuffix(const std::string& skipStatus) {
  return skipStatus == "none" ? std::string() : "_skip_" + skipStatus;
}

}  // namespace

void WriteCompletionMessage(const StartContext& start, std::int64_t skipped, Json::Value& data) {
  std::string key = start.action == ACTION_COPY ? "filebrowser:filebrowser_copy_completed"
                                                : "filebrowser:filebrowser_move_completed";
  if (start.overwriteMode == CONFLICT_ERROR || start.overwriteMode == CONFLICT_SKIP) {
    const std::string status = SkipStatus(skipped);
    Json::Value skipStatus(Json::objectValue);
    skipStatus["status"] = status;
    data["skipstatus"] = skipStatus;
    key += KeySuffix(status);
  }

  std::string text;
  ParseJsonPathToString(start.sourcePaths, text);
  if (!_task->getBoolProperty("blMsg", false)) {
    data["notification_arg1"] = key;
    data["notification_arg2"] = WebUtils::EncodeHtml(text, true);
    return;
  }
  _task->sendNotifyMessageNoEncode("TAVO.ZUL.App.Fennox3.Instance", _task->getTaskId().c_str(),
                                   "tree:leaf_filebrowser", key.c_str(),
                                   WebUtils::EncodeHtml(text, false).c_str(), nullptr, nullptr);
}

}  // namespace Fennox
