// The worker from its start to its end.
#include <unistd.h>

#include <csignal>
#include <thread>
#include <utility>

#include "module_fixture.h"
#include "scripted_action.h"
#include "scripted_faults.h"
#include "task/start_context.h"
#include "task/worker_callbacks.h"
#include "tasks/store.h"
#include "tests/common/sql.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

class WorkerTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    handler_ = &Handler("start");
    NewTask(Parse(R"({"pid":1,"params":{}})"));
    for (const char* name : {"a", "b"}) {
      WriteFile(Share("docs") / name, "12345");
      PathInfo info;
      info.sharePath = std::string("/docs/") + name;
      info.realPath = Share("docs") / name;
      _srcPathInfos.push_back(info);
      start_.sourcePaths.append(info.sharePath);
    }
    start_.destFolder = Share("backup");
  }
  // Runs the worker in a process of its own; what it logged.
  std::string Run(const ActionScript& script) {
    return SaidByChild([&] {
      scriptedAction = script;
      handler_->RunWorker(start_);
    });
  }
  tasks::Record Stored() {
    tasks::Record record;
    EXPECT_TRUE(tasks::Read(CurrentUser(), _task->getTaskId(), &record));
    return record;
  }

  FennoxMVCPHandler* handler_ = nullptr;
  StartContext start_{CurrentUser()};
};

struct EndCase {
  _tag_action_type_ action;
  int overwriteMode;
  int skippedFolders;
  int skippedFiles;
  const char* key;         // after "filebrowser:filebrowser_"
  const char* skipStatus;  // null: none
};

TEST_F(WorkerTest, CompletionMessages) {
  const EndCase cases[] = {
      {ACTION_COPY, 0, 0, 0, "copy_completed", "none"},
      {ACTION_COPY, 1, 1, 1, "copy_completed_skip_all", "all"},
      {ACTION_MOVE, 1, 1, 0, "move_completed_skip_some", "some"},
      {ACTION_MOVE, 3, 1, 1, "move_completed", nullptr},
      {ACTION_COPY, 2, 0, 2, "copy_completed", nullptr},
  };
  for (const EndCase& c : cases) {
    SCOPED_TRACE(c.key);
    NewTask(Parse(R"({"pid":1,"waiting_in_queue":1})"));
    start_.action = c.action;
    start_.overwriteMode = c.overwriteMode;
    Run([&](FennoxMVCPHandler&, EntryMap& entries, bool isDirMap) -> std::int64_t {
      // Both sources are files.
      if (entries.size() != (isDirMap ? 0U : 2U)) return -1;
      return isDirMap ? c.skippedFolders : c.skippedFiles;
    });
    const tasks::Record record = Stored();
    EXPECT_TRUE(record.finished);
    EXPECT_EQ(record.progress, 1.0);
    EXPECT_EQ(record.data["status"], "PROCESSING");
    EXPECT_EQ(record.data["total"], Json::Value(0.0)) << "written before the sources are counted";
    EXPECT_EQ(record.data["notification_arg1"], std::string("filebrowser:filebrowser_") + c.key);
    EXPECT_EQ(record.data["notification_arg2"], "/docs/a, /docs/b");
    EXPECT_FALSE(record.data.isMember("notification_arg3"));
    EXPECT_EQ(record.data.isMember("skipstatus"), c.skipStatus != nullptr);
    if (c.skipStatus != nullptr) {
      EXPECT_EQ(record.data["skipstatus"]["status"], c.skipStatus);
    }
  }
}

TEST_F(WorkerTest, FailedPassFailsTheTask) {
  for (const bool inFolders : {true, false}) {
    NewTask(Parse(R"({"pid":1})"));
    Run([&](FennoxMVCPHandler& handler, EntryMap&, bool isDirMap) -> std::int64_t {
      // Nothing runs after a failed pass: this would be recorded.
      if (inFolders && !isDirMap) {
        (void)handler.MVCPUpdateFailFile(ACTION_COPY, "/late", WEBFM_CONFLICT, "");
      }
      return isDirMap == inFolders ? -1 : 2;
    });
    const tasks::Record record = Stored();
    EXPECT_TRUE(record.finished);
    EXPECT_EQ(record.progress, -1.0);
    EXPECT_FALSE(record.data.isMember("notification_arg1"));
    EXPECT_FALSE(record.data.isMember("skipstatus"));
    EXPECT_FALSE(record.data.isMember("errors"));
  }
}

TEST_F(WorkerTest, RecordedFailureEndsWithoutACompletionMessage) {
  Run([](FennoxMVCPHandler& handler, EntryMap&, bool isDirMap) -> std::int64_t {
    if (isDirMap) (void)handler.MVCPUpdateFailFile(ACTION_COPY, "/docs/a", WEBFM_NO_SPACE, "");
    return 0;
  });
  const tasks::Record record = Stored();
  EXPECT_TRUE(record.finished);
  EXPECT_EQ(record.progress, 1.0);
  EXPECT_EQ(record.data["status"], "FAIL");
  EXPECT_EQ(record.data["notification_arg1"], "filebrowser:filebrowser_copy_failed");
  EXPECT_FALSE(record.data.isMember("skipstatus"));
}

TEST_F(WorkerTest, OwnerToBeMessagedGetsOneNotice) {
  ASSERT_TRUE(_task->setProperty("blMsg", true));
  start_.sourcePaths = Parse(R"(["/docs/<a>"])");
  Run([](FennoxMVCPHandler&, EntryMap&, bool) -> std::int64_t { return 0; });
  EXPECT_FALSE(Stored().data.isMember("notification_arg1"));
  const Json::Value sent = tasks::Notifications(CurrentUser(), 10);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0]["title"], "filebrowser:filebrowser_copy_completed");
  EXPECT_EQ(sent[0]["args"], Parse(R"(["/docs/&lt;a&gt;"])"));
}

TEST_F(WorkerTest, StopDuringAPassRemovesTheRecord) {
  for (const bool inFolders : {true, false}) {
    NewTask(Parse(R"({"pid":1})"));
    Run([&](FennoxMVCPHandler&, EntryMap&, bool isDirMap) -> std::int64_t {
      if (isDirMap == inFolders) raise(SIGTERM);
      return isDirMap == inFolders ? -1 : 0;
    });
    EXPECT_THROW(StoredData(), KVX::TaskError);
  }
}

TEST_F(WorkerTest, RecordThatVanishedIsLoggedAndNotMadeAnew) {
  const std::string log = Run([](FennoxMVCPHandler&, EntryMap&, bool isDirMap) -> std::int64_t {
    if (!isDirMap) _task->remove();
    return 0;
  });
  EXPECT_NE(
      log.find(
          "TAVO.Fennox.CopyMove:629 Failed to get json data, and failed to recover json data\n"),
      std::string::npos)
      << log;
  EXPECT_THROW(StoredData(), KVX::TaskError);
}

TEST_F(WorkerTest, ExceptionInAPassFailsTheTask) {
  Run([](FennoxMVCPHandler&, EntryMap&, bool) -> std::int64_t {
    throw std::runtime_error("out of luck");
  });
  EXPECT_TRUE(Stored().finished);
  EXPECT_EQ(Stored().progress, -1.0);
}

TEST_F(WorkerTest, RunThatCannotGoOnIsLoggedAndLeavesItsRecord) {
  const std::pair<std::string, std::function<void()>> cases[] = {
      {"577 Failed to add task to queue, dest: " + Share("backup").string(),
       [&] {
         start_.srcIsVfs = true;
         std::filesystem::create_directories(root() / "state/run/vfs-queue");
       }},
      {"597 Fail to get user ID of no-such-user-here",
       [&] {
         start_.srcIsVfs = false;
         start_.userName = "no-such-user-here";
       }},
      {"657 Failed to write progress.",
       [&] {
         start_.userName = CurrentUser();
         Sql(root() / "state/users" / CurrentUser() / "tasks.db",
             "CREATE TRIGGER fault BEFORE UPDATE OF finished ON tasks "
             "BEGIN SELECT RAISE(ABORT, 'fault'); END");
       }},
  };
  for (const auto& [line, spoil] : cases) {
    NewTask(Parse(R"({"pid":1})"));
    spoil();
    const std::string log =
        Run([](FennoxMVCPHandler&, EntryMap&, bool) -> std::int64_t { return 0; });
    EXPECT_NE(log.find("TAVO.Fennox.CopyMove:" + line + "\n"), std::string::npos) << log;
    EXPECT_FALSE(Stored().finished);
    EXPECT_FALSE(Stored().data.isMember("notification_arg1"));
  }
}

TEST_F(WorkerTest, TaskOnARemoteMountWaitsForItsTurn) {
  start_.destIsVfs = true;
  // Three others hold all the places, as long as their records live.
  TAVOVFS::TaskMgr queue(3);
  const std::string mine = _task->getTaskId();
  std::vector<std::unique_ptr<KVX::Task>> others;
  for (const char* id : {"Fennox_1", "Fennox_2", "Fennox_3"}) {
    others.push_back(std::make_unique<KVX::Task>(CurrentUser().c_str(), id));
    ASSERT_TRUE(queue.Add("queue", id, getpid()));
    ASSERT_NE(queue.IsRunnable("queue", id, getpid(), MVCPGetTask, &start_.taskRegistry), 0);
  }
  const pid_t child = fork();
  if (child == 0) {
    scriptedAction = [](FennoxMVCPHandler&, EntryMap&, bool) -> std::int64_t { return 0; };
    handler_->RunWorker(start_);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_FALSE(Stored().finished);
  EXPECT_FALSE(Stored().data.isMember("status"));  // not a single progress write yet
  others.front()->remove();
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(Stored().finished);
  EXPECT_EQ(mine, _task->getTaskId());
}

TEST_F(WorkerTest, QueueProbe) {
  KVX::TaskMgr registry(CurrentUser().c_str());
  const std::string id = _task->getTaskId();
  EXPECT_EQ(MVCPGetTask("queue", id.c_str(), 1, nullptr), -1);
  EXPECT_EQ(MVCPGetTask("queue", id.c_str(), 1, &registry), 1);
  EXPECT_EQ(MVCPGetTask("queue", "Fennox_none", 1, &registry), 0);
  ASSERT_TRUE(_task->finish(false));
  EXPECT_EQ(MVCPGetTask("queue", id.c_str(), 1, &registry), 0);
  _cancelRequested = 1;
  EXPECT_EQ(MVCPGetTask("queue", id.c_str(), 1, &registry), -1);
}

TEST_F(WorkerTest, OnlySigtermAsksForAStop) {
  testing::internal::CaptureStderr();
  MVCPSignalHandler(SIGUSR1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "TAVO.Fennox.CopyMove:72 Unknown Signal: " + std::to_string(SIGUSR1) + "\n"),
            std::string::npos);
  MVCPRemoveTask();
  EXPECT_EQ(_cancelRequested, 0);
  EXPECT_EQ(StoredData()["pid"], 1);
  MVCPSignalHandler(SIGTERM);
  EXPECT_EQ(_cancelRequested, 1);
  MVCPRemoveTask();
  EXPECT_THROW(StoredData(), KVX::TaskError);
}

TEST_F(WorkerTest, StartThatFailsLeavesNoTask) {
  _task->remove();
  delete std::exchange(_task, nullptr);
  WriteFile(root() / "mount-nas/a", "a");
  struct {
    const char* params;
    const char* refusedProtocol;
    int code;
    const char* logged;
  } const cases[] = {
      {R"({"path":"/docs/a","dest_folder_path":"/backup"})", "", 401,
       "TAVO.Fennox.CopyMove:551 Failed to fork().\n"},
      {R"({"path":"sftp://nas/a","dest_folder_path":"/backup"})", "sftp", 407, ""},
      {R"({"path":"/docs/a","dest_folder_path":"dropbox://box/"})", "dropbox", 407, ""},
  };
  for (const auto& c : cases) {
    faults = {true, c.refusedProtocol, nullptr};
    testing::internal::CaptureStderr();
    const Outcome refused = Serve("start", Parse(c.params));
    EXPECT_NE(testing::internal::GetCapturedStderr().find(c.logged), std::string::npos) << c.code;
    EXPECT_EQ(refused.code, c.code) << c.params;
    EXPECT_EQ(refused.data, Json::Value());
    EXPECT_TRUE(tasks::List(CurrentUser()).empty());
  }
}

}  // namespace
