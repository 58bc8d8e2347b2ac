#include "tasks/task_helpers.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>

#include "core/config.h"
#include "records.h"
#include "write_signal.h"

namespace {

using tasks::internal::Result;

constexpr std::chrono::microseconds kFirstLook{20'000};

// A store that another process holds for the moment is worth another look; a
// record that is gone and a damaged store are not.
bool MayComeBack(const KVX::Task& task) {
  bool finished = false;
  const Result result = tasks::internal::AskFinished(task.user(), task.getTaskId(), &finished);
  return result == Result::kDone || result == Result::kBusy;
}

bool WaitUntil(KVX::Task* task, int seconds, const std::function<bool()>& ready) {
  if (task == nullptr) return false;
  using Microseconds = std::chrono::microseconds;
  const auto begin = std::chrono::steady_clock::now();
  const auto deadline = begin + std::chrono::seconds(seconds);
  // What a new handle has just loaded is not loaded twice.
  if (task->takeFirstLoad() && ready()) return true;
  // A look costs the writer more than it costs this process.
  if (seconds > 0) tasks::internal::AwaitFirstWrite(kFirstLook);
  for (;;) {
    if (task->reload()) {
      if (ready()) return true;
    } else if (!MayComeBack(*task)) {
      return false;
    }
    const auto now = std::chrono::steady_clock::now();
    const auto left = std::chrono::ceil<Microseconds>(deadline - now);
    if (left.count() <= 0) return false;
    // What is waited for is noticed late by an eighth of the wait at most.
    const auto eighth = std::chrono::duration_cast<Microseconds>(now - begin) / 8;
    tasks::internal::AwaitWrite(
        std::min(left, std::clamp(eighth, Microseconds(250), Microseconds(100'000))));
  }
}

}  // namespace

bool WaitForTaskDataReady(KVX::Task* task, const char* property, int seconds) {
  return WaitUntil(task, seconds, [&] { return !task->loadedProperty(property).isNull(); });
}

bool WaitForTaskDataKeyReady(KVX::Task* task, const char* property, const char* member,
                             int seconds) {
  if (member == nullptr) return false;
  return WaitUntil(task, seconds, [&] {
    const Json::Value& value = task->loadedProperty(property);
    return value.isObject() && value.isMember(member);
  });
}

bool RecoverTaskData(KVX::Task* task, const Json::Value& snapshot) {
  if (task == nullptr || snapshot.isNull()) return false;
  return tasks::internal::RestoreData(task->user(), task->getTaskId(), snapshot) == Result::kDone &&
         task->reload();
}

bool SaveTaskData(KVX::Task* task, const Json::Value& data, float ratio) {
  if (task == nullptr) return false;
  task->beginUpdate();
  return task->setProperty("data", data) &&
         task->setProperty("progress", Json::Value(static_cast<double>(ratio))) &&
         task->endUpdate();
}

Json::Value WfmLibBkgTaskInfoCreate(const Json::Value& data, const std::string& action) {
  const Json::Value none;
  const Json::Value& params = data.isObject() ? data["params"] : none;
  const Json::Value& paths = params.isObject() ? params["path"] : none;
  const Json::Value& folder = params.isObject() ? params["dest_folder_path"] : none;
  Json::Value info(Json::objectValue);
  info["action"] = action;
  info["source_count"] = paths.isArray() ? paths.size() : 0;
  info["dest_folder_path"] = folder.isString() ? folder : Json::Value("");
  info["created"] = static_cast<Json::Int64>(time(nullptr));
  return info;
}

void CleanTimeOutTasks(const char* user) {
  if (user == nullptr) return;
  const std::int64_t now = time(nullptr);
  const std::int64_t kept = std::int64_t{3600} * core::CurrentConfig().finished_tasks_hours;
  // Nobody waits for the result: what is left now is removed after the next task.
  (void)tasks::internal::RemoveOldRecords(user, now - kept,
                                          now - tasks::internal::kSecondsWithoutData);
}

bool WfmLibRemoveFinishedTask(KVX::Task* task, int /*workerPid*/, bool force) {
  // A task that ended between two answers stays for the next poll, so that the
  // client is told "finished" before the record goes.
  if (task == nullptr || !(force || task->reportedFinished())) return false;
  task->removeWhenReleased();
  return true;
}
