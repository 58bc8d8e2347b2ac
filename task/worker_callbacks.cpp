#include "task/worker_callbacks.h"

#include <csignal>
#include <memory>

#include "webapi/log.h"
#include "webapi/module_state.h"

namespace Fennox {

void MVCPSignalHandler(int signal) {
  if (signal == SIGTERM) {
    _cancelRequested = 1;
    return;
  }
  LogError(72, "Unknown Signal: %d", signal);
}

void MVCPRemoveTask() {
  if (_cancelRequested == 1 && _task != nullptr) _task->remove();
}

int MVCPGetTask(const char* /*queue*/, const char* taskId, int /*pid*/, void* registry) {
  if (registry == nullptr || _cancelRequested != 0) return -1;
  try {
    const std::unique_ptr<KVX::Task> task(
        static_cast<KVX::TaskMgr*>(registry)->getTaskWithThrow(taskId));
    return task->isFinished() ? 0 : 1;
  } catch (...) {
    return 0;
  }
}

}  // namespace Fennox
