// The methods "status" and "stop".
#include <sys/wait.h>
#include <unistd.h>

#include "module_fixture.h"
#include "scripted_faults.h"
#include "tasks/store.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

Json::Value TaskId(const std::string& id) {
  Json::Value params;
  params["taskid"] = id;
  return params;
}

class StatusStopTest : public ModuleTest {
 protected:
  // Stores a record and lets go of it.
  std::string Stored(const Json::Value& data, const Json::Value& progress, bool finished) {
    KVX::Task& task = NewTask();
    task.beginUpdate();
    if (!progress.isNull()) task.setProperty("progress", progress);
    if (!data.isNull()) task.setProperty("data", data);
    EXPECT_TRUE(finished ? task.finish(false) : task.endUpdate());
    std::string id = task.getTaskId();
    delete _task;
    _task = nullptr;
    return id;
  }
  bool Exists(const std::string& id) {
    tasks::Record record;
    return tasks::Read(CurrentUser(), id, &record);
  }
};

struct StatusCase {
  const char* data;
  const char* progress;
  bool finished;
  const char* answer;
};

TEST_F(StatusStopTest, StatusAnswersWhatTheRecordHas) {
  const StatusCase cases[] = {
      // Fresh from "start".
      {R"({"pid":5,"status":"NOT_STARTED","path":"","processing_path":"","params":{}})", "0", false,
       R"({"dest_folder_path":"","finished":false,"progress":0.0,"status":"NOT_STARTED",
           "processed_num":0,"total":-1,"path":"","processing_path":""})"},
      // Running, counted in bytes.
      {R"({"pid":5,"status":"PROCESSING","params":{"dest_folder_path":"/backup"},"total":400.0,
           "processed_size":100.0,"found_file_num":3,"found_dir_num":1,"found_file_size":400,
           "transfer_rate":12.5,"path":"/docs/a","processing_path":"/docs/a","errors":[{"code":1,"path":"x"}]})",
       "0.25", false,
       R"({"dest_folder_path":"/backup","finished":false,"progress":0.25,"status":"PROCESSING",
           "processed_size":100.0,"found_file_num":3,"found_dir_num":1,"found_file_size":400,
           "transfer_rate":12.5,"total":400.0,"path":"/docs/a","processing_path":"/docs/a",
           "errors":[{"code":1,"path":"x"}]})"},
      // Finished: everything is processed.
      {R"({"pid":5,"status":"PROCESSING","total":400.0,"processed_size":100.0,
           "skipstatus":{"status":"none"}})",
       "1", true,
       R"({"finished":true,"progress":1.0,"status":"PROCESSING","skipstatus":{"status":"none"},
           "processed_size":400.0,"total":400.0,"path":"","processing_path":""})"},
      // Counted in entries; only two of the three found members.
      {R"({"pid":5,"total":4.0,"processed_num":1.0,"found_file_num":1,"found_dir_num":1})", "-1",
       false,
       R"({"finished":false,"progress":-1.0,"status":null,"processed_num":1.0,"total":4.0,
           "path":"","processing_path":""})"},
      {R"({"pid":5,"total":4.0,"processed_num":1.0})", "null", true,
       R"({"finished":true,"progress":0.0,"status":null,"processed_num":4.0,"total":4.0,
           "path":"","processing_path":""})"},
      // Data of the wrong types does no harm.
      {R"({"pid":"5","params":7})", "null", false,
       R"({"dest_folder_path":"","finished":false,"progress":0.0,"status":null,"processed_num":0,
           "total":-1,"path":"","processing_path":""})"},
  };
  for (const StatusCase& c : cases) {
    const std::string id = Stored(Parse(c.data), Parse(c.progress), c.finished);
    const Outcome outcome = Serve("status", TaskId(id), 1);
    EXPECT_EQ(outcome.code, 0) << c.data;
    EXPECT_EQ(outcome.data, Parse(c.answer)) << c.data;
    EXPECT_EQ(outcome.data["progress"].type(), Json::realValue);
    // A finished record goes once it has been reported.
    EXPECT_EQ(Exists(id), !c.finished) << c.data;
  }
}

TEST_F(StatusStopTest, StopEndsTheWorkerAndItsRecord) {
  int worker_ready[2];
  ASSERT_EQ(pipe(worker_ready), 0);
  const pid_t worker = fork();
  if (worker == 0) {
    close(worker_ready[1]);
    char gone;
    (void)!read(worker_ready[0], &gone, 1);  // until killed, or the test is over
    _exit(1);
  }
  Json::Value data;
  data["pid"] = worker;
  const std::string id = Stored(data, 0, false);
  const Outcome outcome = Serve("stop", TaskId(id));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(outcome.data.isNull());
  int status = 0;
  ASSERT_EQ(waitpid(worker, &status, 0), worker);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
  EXPECT_FALSE(Exists(id));
  EXPECT_EQ(Serve("stop", TaskId(id)).code, 0);  // nothing left to stop
  EXPECT_EQ(Serve("status", TaskId(id)).code, 599);
  close(worker_ready[0]);
  close(worker_ready[1]);
}

TEST_F(StatusStopTest, StopOfATaskThatCannotBeStopped) {
  EXPECT_EQ(Serve("stop", Parse("{}")).code, 400);
  EXPECT_EQ(Serve("stop", Parse(R"({"taskid":{}})")).code, 0);

  const std::string finished = Stored(Parse(R"({"pid":1})"), 1, true);
  EXPECT_EQ(Serve("stop", TaskId(finished)).code, 0);
  EXPECT_FALSE(Exists(finished));

  // Process ids that are no worker's: the stop fails, the record goes.
  for (const char* data : {R"({"pid":1})", R"({"pid":0})", R"({"pid":-1})", R"({"pid":"x"})"}) {
    const std::string id = Stored(Parse(data), 0, false);
    EXPECT_EQ(Serve("stop", TaskId(id)).code, 401) << data;
    EXPECT_FALSE(Exists(id)) << data;
  }
}

TEST_F(StatusStopTest, DataThatCannotBeReadIsLogged) {
  struct {
    const char* method;
    bool pidCame;
    const char* line;
    const char* ending;
  } const cases[] = {
      {"status", false, "2009 Failed to get json data, Fennox_", ".\n"},
      {"status", true, "2015 Failed to get json data", "\n"},
      {"stop", false, "2090 Failed to get json data", "\n"},
      {"stop", true, "2098 Failed to get json data", "\n"},
  };
  for (const auto& c : cases) {
    const std::string id = Stored(Json::Value(), 0, false);
    faults.dataWait = [&](KVX::Task*) { return c.pidCame; };
    testing::internal::CaptureStderr();
    EXPECT_EQ(Serve(c.method, TaskId(id)).code, 401) << c.line;
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find(std::string("TAVO.Fennox.CopyMove:") + c.line), std::string::npos) << log;
    EXPECT_TRUE(log.ends_with(c.ending) && log.find('\n') == log.size() - 1) << log;
    EXPECT_EQ(Exists(id), c.method == std::string("status"));
  }
}

}  // namespace
