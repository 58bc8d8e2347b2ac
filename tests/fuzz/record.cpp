// The task store, when its file holds anything at all.
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "core/config.h"
#include "fuzz.h"
#include "tasks/store.h"
#include "tasks/task_helpers.h"

namespace fuzz {
namespace {

constexpr const char* kUser = "alice";

std::string MakeState() {
  core::Config config;
  config.server.state = Folder();
  core::SetConfig(config);
  const std::string folder = core::UserStateFolder(kUser);
  std::filesystem::create_directories(folder);
  return folder;
}

void UseRecord(const std::string& id) {
  std::unique_ptr<KVX::Task> task;
  try {
    task.reset(KVX::TaskMgr(kUser).getTaskWithThrow(id.c_str()));
  } catch (const KVX::TaskError&) {
    return;
  }
  const Json::Value data = task->getProperty("data");
  (void)WfmLibBkgTaskInfoCreate(data, "copy");
  (void)task->getDoubleProperty("progress", 0);
  (void)WaitForTaskDataKeyReady(task.get(), "data", "pid", 0);
  (void)RecoverTaskData(task.get(), data);
  (void)SaveTaskData(task.get(), data, 0.5F);
  (void)task->sendNotifyMessageNoEncode("app", id.c_str(), "c", "t", nullptr);
  (void)task->finish(false);
  if (task->isFinished()) (void)WfmLibRemoveFinishedTask(task.get(), -1, false);
}

}  // namespace

void Fuzz(std::string_view input) {
  static const std::string folder = MakeState();
  const std::uint8_t choice = TakeByte(&input);
  for (const auto& old : std::filesystem::directory_iterator(folder)) {
    std::filesystem::remove(old.path());
  }
  const std::string store = folder + "/tasks.db";
  Write(store, input);
  if ((choice & 1U) != 0) {  // as one that a power cut may have damaged
    const timespec long_ago[2] = {{1, 0}, {1, 0}};
    utimensat(AT_FDCWD, store.c_str(), long_ago, 0);
  }
  const auto records = tasks::List(kUser);
  (void)tasks::Notifications(kUser, 10);
  if ((choice & 2U) != 0) (void)tasks::EndRecordsOfDeadWorkers(kUser, 0, 480);
  for (std::size_t i = 0; i < records.size() && i < 4; ++i) {
    tasks::Record record;
    (void)tasks::Read(kUser, records[i].id, &record);
    UseRecord(records[i].id);
  }
  if ((choice & 4U) != 0) CleanTimeOutTasks(kUser);
  try {
    if (!KVX::Task(kUser, "new").setProperty("data", Json::Value(Json::objectValue))) return;
  } catch (const KVX::TaskError&) {
    return;
  }
  tasks::Record record;
  (void)tasks::Read(kUser, "new", &record);  // a damaged index may not find it
}

}  // namespace fuzz
