// The worker: one copy or move from its start to its end.
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <utility>

#include "cloud/cloud.h"
#include "core/user.h"
#include "support/bandwidth.h"
#include "task/completion_message.h"
#include "task/start_context.h"
#include "task/worker_callbacks.h"
#include "tasks/task_helpers.h"
#include "webapi/handler.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"
#include "webapi/paths.h"
#include "webapi/source_look.h"

namespace Fennox {
namespace {

constexpr char kQueueName[] = "queue";
constexpr int kRecordWaitSeconds = 60;
constexpr unsigned long long kLargestGrant = 8388608;
constexpr std::int64_t kActionFailed = -1;

class WorkerRun {
 public:
  WorkerRun(FennoxMVCPHandler& handler, StartContext& start) : handler_(handler), start_(start) {}

  // Runs the task. Returns early wherever it cannot go on or a stop is seen.
  void Run();
  // Marks the record failed, for a run that broke off by an exception.
  void FinishAsFailed();
  // Gives back what the run holds; a stopped task's record goes away.
  void End();

 private:
  // Outcome of the two passes.
  enum class Passes { kRan, kFailed, kStopped };

  static bool Stopped() { return _cancelRequested != 0; }
  bool WaitForTurn();
  bool Enumerate();
  bool PrepareTransfers();
  std::int64_t Pass(EntryMap& entries, bool isDirMap);
  Passes RunPasses();
  void Finish(bool ran);

  FennoxMVCPHandler& handler_;
  StartContext& start_;
  EntryMap fileMap_;
  EntryMap dirMap_;
  std::int64_t skipped_ = 0;
};

void WorkerRun::Run() {
  (void)std::signal(SIGTERM, MVCPSignalHandler);
  (void)std::atexit(MVCPRemoveTask);
  // A remote mount is asked no more than it must be.
  if (!start_.TouchesRemoteMount()) LookAtSourcesEarly();
  (void)WaitForTaskDataReady(_task, "data", kRecordWaitSeconds);
  _taskDataSnapshot = _task->loadedProperty("data");
  if (Stopped()) return;

  if (start_.TouchesRemoteMount() && !WaitForTurn()) return;
  _notStarted = false;
  MVCPUpdateProgress(0, 0);
  if (!Enumerate() || !PrepareTransfers()) return;

  const Passes outcome = RunPasses();
  if (outcome != Passes::kStopped) Finish(outcome == Passes::kRan);
}

bool WorkerRun::WaitForTurn() {
  const std::string id = _task->getTaskId();
  if (!start_.vfsQueue.Add(kQueueName, id.c_str(), getpid())) {
    LogError(577, "Failed to add task to queue, dest: %s", start_.destFolder.c_str());
    return false;
  }
  while (!Stopped()) {
    if (start_.vfsQueue.IsRunnable(kQueueName, id.c_str(), getpid(), MVCPGetTask,
                                   &start_.taskRegistry) != 0) {
      return !Stopped();
    }
    sleep(1);
  }
  return false;
}

bool WorkerRun::Enumerate() {
  handler_.WebFMParseInputFiles(_srcPathInfos, fileMap_, dirMap_, start_.overwriteMode,
                                start_.overwriteList, start_.renameMode, start_.renameList);
  return !Stopped();
}

bool WorkerRun::PrepareTransfers() {
  if (TAVOUserGetUGID(start_.userName.c_str(), &start_.uid, &start_.gid) < 0) {
    LogError(597, "Fail to get user ID of %s", start_.userName.c_str());
    return false;
  }
  if (!WfmlibBwInit(start_.destIsVfs, start_.srcIsVfs, start_.uid,
                    LastComponent(start_.destFolder).c_str(), kLargestGrant)) {
    return false;
  }
  TAVOCloud::Cloud::InitCurlGlobal();
  return true;
}

std::int64_t WorkerRun::Pass(EntryMap& entries, bool isDirMap) {
  return handler_.WebFMMVCPAction(entries, start_.destFolder, isDirMap, start_.overwriteMode,
                                  start_.action, start_.destParam, start_.destCodePage);
}

WorkerRun::Passes WorkerRun::RunPasses() {
  skipped_ = Pass(dirMap_, true);
  if (skipped_ == kActionFailed) return Stopped() ? Passes::kStopped : Passes::kFailed;
  if (Stopped()) return Passes::kStopped;

  const std::int64_t skippedFiles = Pass(fileMap_, false);
  if (skippedFiles == kActionFailed) {
    skipped_ = kActionFailed;
    return Stopped() ? Passes::kStopped : Passes::kFailed;
  }
  skipped_ += skippedFiles;
  return Passes::kRan;
}

void WorkerRun::Finish(bool ran) {
  Json::Value data;
  if (!LoadTaskData(629, data)) return;
  _task->beginUpdate();
  if (ran && !_hadFailure) WriteCompletionMessage(start_, skipped_, data);
  _task->setProperty("progress", ran ? 1 : -1);
  _task->setProperty("data", std::move(data));
  _task->setTransferredBytes(_processedBytes);
  if (!_task->finish(false)) LogError(657, "Failed to write progress.");
  CleanTimeOutTasks(start_.userName.c_str());
}

void WorkerRun::FinishAsFailed() {
  try {
    if (!Stopped()) Finish(false);
  } catch (...) {
    // The server ends the record of a worker that is gone.
  }
}

void WorkerRun::End() {
  MVCPRemoveTask();
  WfmlibBwEnd();
  delete std::exchange(_srcCloud, nullptr);
  delete std::exchange(_destCloud, nullptr);
  _readAhead.reset();
  TAVOCloud::Cloud::CleanupCurlGlobal();
  if (start_.TouchesRemoteMount()) {
    start_.vfsQueue.Clean(kQueueName, _task->getTaskId().c_str(), getpid(), MVCPGetTask,
                          &start_.taskRegistry, true);
  }
}

}  // namespace

void FennoxMVCPHandler::RunWorker(StartContext& start) {
  WorkerRun worker(*this, start);
  // Nothing may unwind into the server's code: it would answer the request a
  // second time from this process.
  try {
    worker.Run();
  } catch (...) {
    worker.FinishAsFailed();
  }
  try {
    worker.End();
  } catch (...) {
    _exit(0);
  }
  _exit(0);
}

}  // namespace Fennox
