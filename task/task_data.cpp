// Reading the record's "data", with its repair.
#include "tasks/task_helpers.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

// Anything but an object is as good as lost. Long lists of sources stay in the record:
// the worker has its own.
bool ReadData(Json::Value& data) {
  _task->reload();
  data = _task->loadedProperty("data");
  return data.isObject();
}

}  // namespace

bool LoadTaskData(int number, Json::Value& data) {
  if (ReadData(data)) return true;
  // A stop removes the record; nobody is left to tell.
  if (_cancelRequested == 1) return false;
  if (!_taskDataSnapshot.isNull() && RecoverTaskData(_task, _taskDataSnapshot) && ReadData(data)) {
    return true;
  }
  LogError(number, "Failed to get json data, and failed to recover json data");
  return false;
}

}  // namespace Fennox
