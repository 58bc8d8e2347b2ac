// The "status" method.
#include "tasks/task_helpers.h"
#include "webapi/handler.h"
#include "webapi/json_read.h"
#include "webapi/log.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

constexpr int kWaitSeconds = 60;

void CopyIfPresent(const Json::Value& data, const char* name, Json::Value& answer) {
  if (data.isMember(name)) answer[name] = data[name];
}

// A finished task has processed everything, whatever its last progress said.
void AnswerProcessed(const Json::Value& data, Json::Value& answer) {
  const char* member = data.isMember("processed_size") ? "processed_size" : "processed_num";
  answer[member] = data.get(_task->isFinished() ? "total" : member, 0);
}

void AnswerFound(const Json::Value& data, Json::Value& answer) {
  constexpr const char* kMembers[] = {"found_file_num", "found_dir_num", "found_file_size"};
  for (const char* member : kMembers) {
    if (!data.isMember(member)) return;
  }
  for (const char* member : kMembers) answer[member] = data[member];
}

Json::Value Answer(const Json::Value& data) {
  Json::Value answer(Json::objectValue);
  if (data.isMember("params")) {
    answer["dest_folder_path"] = TextMemberOf(data["params"], "dest_folder_path");
  }
  CopyIfPresent(data, "errors", answer);
  answer["finished"] = _task->isFinished();
  answer["progress"] = _task->getDoubleProperty("progress", 0.0);
  answer["status"] = data["status"];
  CopyIfPresent(data, "skipstatus", answer);
  AnswerProcessed(data, answer);
  AnswerFound(data, answer);
  CopyIfPresent(data, "transfer_rate", answer);
  answer["total"] = data.get("total", -1);
  answer["path"] = data.get("path", "");
  answer["processing_path"] = data.get("processing_path", "");
  return answer;
}

// Sets _task, which keeps its value when the user has no such task.
bool FindTask(const std::string& user, const std::string& id) {
  try {
    KVX::TaskMgr registry(user.c_str());
    _task = registry.getTaskWithThrow(id.c_str());
    return true;
  } catch (...) {
    return false;
  }
}

// Points `data` at the task's data, or says by the web-API code why there is none. The
// data of a long request is not copied: it would take longer than all the rest.
int ReadTask(const TAVO::APIRequest& request, const Json::Value*& data) {
  if (!request.HasParam("taskid")) return WEBFM_BAD_PARAMETER;
  const std::string id = TextOf(request.GetParam("taskid", ""));
  if (!FindTask(request.GetLoginUserName(), id)) return WEBFM_NO_SUCH_TASK;
  if (!WaitForTaskDataKeyReady(_task, "data", "pid", kWaitSeconds)) {
    LogError(2009, "Failed to get json data, %s.", id.c_str());
    return WEBFM_FAILED;
  }
  data = &_task->loadedProperty("data");
  if (!data->isObject()) {
    data = &Json::Value::nullSingleton();
    LogError(2015, "Failed to get json data");
    return WEBFM_FAILED;
  }
  return WEBFM_OK;
}

}  // namespace

bool FennoxMVCPHandler::WebFMMVCPProgressHandler() {
  const Json::Value* data = &Json::Value::nullSingleton();
  const int code = ReadTask(*request, data);
  if (code == WEBFM_OK) {
    Json::Value answer = Answer(*data);
    SetResponse(answer);
  } else {
    SetError(code);
  }
  (void)WfmLibRemoveFinishedTask(_task, PidMemberOf(*data), false);
  return true;
}

}  // namespace Fennox
