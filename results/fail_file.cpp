// Records a failed entry and tells the user.
#include "webapi/handler.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"
#include "webapi_runtime/web_utils.h"

namespace Fennox {
namespace {

std::string ErrorKey(WEBFMERR code) {
  switch (code) {
    case WEBFM_CONFLICT:
      return "error:error_select_conflict";
    case WEBFM_TYPE_CONFLICT:
      return "error:error_overwrite_fail";
    case WEBFM_BAD_FILE_NAME:
      return "error:mvcp_filename_illegal";
    case WEBFM_FILE_TOO_BIG:
      return "error:mvcp_file_too_big";
    default:
      return WfmParseErrorToKVXString(code, 0);
  }
}

// Sends the notice now when the record asks for that; otherwise leaves its
// arguments in the record.
void Announce(bool isMove, const std::string& path, const std::string& errorKey,
              Json::Value& data) {
  const char* title =
      isMove ? "filebrowser:filebrowser_move_failed" : "filebrowser:filebrowser_copy_failed";
  if (_task->getBoolProperty("blMsg", false)) {
    const std::string text = WebUtils::EncodeHtml(path, !isMove);
    _task->sendNotifyMessageNoEncode("TAVO.ZUL.App.Fennox3.Instance", _task->getTaskId().c_str(),
                                     "tree:leaf_filebrowser", title, text.c_str(), errorKey.c_str(),
                                     nullptr);
    return;
  }
  data["notification_arg1"] = title;
  data["notification_arg2"] = WebUtils::EncodeHtml(path, false);
  data["notification_arg3"] = errorKey;
}

}  // namespace

bool FennoxMVCPHandler::MVCPUpdateFailFile(_tag_action_type_ actionType, const char* path,
                                           WEBFMERR code, const char* /*unused*/) {
  // First of all: the end of the run must learn of it even when the rest fails.
  _hadFailure = true;

  Json::Value data;
  if (!LoadTaskData(1924, data)) return false;
  Json::Value entry(Json::objectValue);
  ParseFileError(path, code, entry);
  Announce(actionType == ACTION_MOVE, path, ErrorKey(code), data);
  if (!data.isMember("errors")) {
    data["errors"] = Json::Value(Json::arrayValue);
    data["status"] = "FAIL";
  }
  data["errors"].append(entry);
  if (!_task->setProperty("data", data)) {
    LogError(1978, "Failed to write progress.");
    return false;
  }
  return true;
}

}  // namespace Fennox
