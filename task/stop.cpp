// The "stop" method.
#include "tasks/task_helpers.h"
#include "webapi/handler.h"
#include "webapi/json_read.h"
#include "webapi/log.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

constexpr int kWaitSeconds = 60;

// Ends the worker of the task in hand. False when it may still run.
bool EndWorker() {
  if (!WaitForTaskDataKeyReady(_task, "data", "pid", kWaitSeconds)) {
    LogError(2090, "Failed to get json data");
    return false;
  }
  if (_task->isFinished()) return true;
  const Json::Value& data = _task->loadedProperty("data");
  if (!data.isObject()) {
    LogError(2098, "Failed to get json data");
    return false;
  }
  return DoKill(PidMemberOf(data));
}

// A task that the user does not have counts as stopped. _task keeps its value
// then.
bool StopTask(const std::string& user, const std::string& id) {
  try {
    KVX::TaskMgr registry(user.c_str());
    _task = registry.getTaskWithThrow(id.c_str());
  } catch (...) {
    return true;
  }
  return EndWorker();
}

}  // namespace

bool FennoxMVCPHandler::WebFMCancelMVCPHandler() {
  bool stopped = false;
  if (!request->HasParam("taskid")) {
    SetError(WEBFM_BAD_PARAMETER);
  } else if (StopTask(request->GetLoginUserName(), TextOf(request->GetParam("taskid", "")))) {
    Json::Value nothing;
    SetResponse(nothing);
    stopped = true;
  } else {
    SetError(WEBFM_FAILED);
  }
  if (_task != nullptr) _task->remove();
  return stopped;
}

}  // namespace Fennox
