#include <pwd.h>

#include <chrono>
#include <thread>

#include "store_fixture.h"

namespace {

constexpr int kLost = 599;

class WorkerTest : public StoreTest {
 protected:
  // The store that DoKill looks into.
  const std::string user_ = getpwuid(geteuid())->pw_name;

  std::unique_ptr<KVX::Task> RecordOf(const char* id, pid_t pid) const {
    auto task = Make(user_.c_str(), id);
    EXPECT_TRUE(SaveTaskData(task.get(), DataWithPid(pid), 0.5F));
    return task;
  }
  tasks::Record Stored(const char* id) const {
    tasks::Record record;
    EXPECT_TRUE(tasks::Read(user_, id, &record));
    return record;
  }
};

TEST_F(WorkerTest, ConcurrentWritersLoseNothing) {
  Make("ann", "shared");
  const auto write = [&](const char* name) {
    const auto task = Get("ann", "shared");
    for (int i = 1; i <= 50; ++i) {
      if (!task->setProperty(name, i)) return 1;
      if (i % 10 == 0 && !task->reload()) return 2;
    }
    return 0;
  };
  Child first([&] { return write("first"); });
  Child second([&] { return write("second"); });
  Child creator([&] {
    for (int i = 0; i < 20; ++i) Make("ann", ("t" + std::to_string(i)).c_str());
    return 0;
  });
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(second.Wait(), 0);
  EXPECT_EQ(creator.Wait(), 0);
  const auto task = Get("ann", "shared");
  EXPECT_EQ(task->getProperty("first"), Json::Value(50));
  EXPECT_EQ(task->getProperty("second"), Json::Value(50));
  EXPECT_EQ(tasks::List("ann").size(), 21U);
}

TEST_F(WorkerTest, SeveralProcessesMayMakeTheSameStoreAtOnce) {
  std::vector<std::unique_ptr<Child>> makers;
  for (const char* id : {"a", "b", "c", "d"}) {
    makers.push_back(std::make_unique<Child>([id] { return Make("ann", id) ? 0 : 1; }));
  }
  for (const auto& maker : makers) EXPECT_EQ(maker->Wait(), 0);
  EXPECT_EQ(tasks::List("ann").size(), 4U);
}

// Data and ratio belong to one transaction: whenever the writer dies, they fit.
TEST_F(WorkerTest, AWriterKilledAtAnyMomentLeavesAWholeRecord) {
  const auto task = Make("ann", "t");
  for (int round = 0; round < 8; ++round) {
    Child writer([&] {
      Json::Value data = DataWithPid(getpid());
      data["filler"] = std::string(9000, 'x');
      for (int i = 0;; ++i) {
        data["n"] = i;
        SaveTaskData(task.get(), data, static_cast<float>(i));
      }
      return 0;
    });
    ASSERT_TRUE(WaitForTaskDataKeyReady(task.get(), "data", "n", 60));
    std::this_thread::sleep_for(std::chrono::microseconds(4100 * round));
    writer.Kill();
    ASSERT_TRUE(task->reload()) << round;
    ASSERT_EQ(task->getProperty("data")["n"].asInt(), task->getDoubleProperty("progress", -5))
        << round;
    EXPECT_EQ(tasks::EndRecordsOfDeadWorkers("ann", 0, kLost), 1) << round;
    task->remove();
    KVX::Task("ann", "t");
  }
}

TEST_F(WorkerTest, RecordOfAKilledWorkerEndsWithThePathInHand) {
  Child worker(&Sleep);
  const auto task = RecordOf("t", worker.pid());
  EXPECT_EQ(tasks::EndRecordsOfDeadWorkers(user_, 0, kLost), 0) << "it still runs";
  kill(worker.pid(), SIGKILL);
  worker.BecomeZombie();
  EXPECT_EQ(tasks::EndRecordsOfDeadWorkers(user_, 0, kLost), 1);
  EXPECT_EQ(tasks::EndRecordsOfDeadWorkers(user_, 0, kLost), 0);

  ASSERT_TRUE(task->reload());
  EXPECT_TRUE(task->isFinished());
  const tasks::Record record = Stored("t");
  EXPECT_EQ(record.progress, -1.0);
  EXPECT_EQ(record.data["status"], "FAIL");
  ASSERT_EQ(record.data["errors"].size(), 1U);
  EXPECT_EQ(record.data["errors"][0]["code"].asInt(), kLost);
  EXPECT_EQ(record.data["errors"][0]["path"], "/photos/a.jpg");
}

TEST_F(WorkerTest, OnlyRecordsThatNobodyWillFinishAreEnded) {
  Child worker(&Sleep);
  RecordOf("running", worker.pid());
  EXPECT_TRUE(RecordOf("finished", worker.pid())->finish(false));
  RecordOf("reused-pid", worker.pid());
  RecordOf("gone-when-recorded", worker.pid());
  RecordOf("damaged", worker.pid());
  Make(user_.c_str(), "no-data-new");
  Make(user_.c_str(), "no-data-old");
  Edit(user_,
       "UPDATE tasks SET pid_start = pid_start - 1 WHERE id IN ('reused-pid', 'damaged');"
       "UPDATE tasks SET pid_start = NULL WHERE id = 'gone-when-recorded';"
       "UPDATE tasks SET created = created - 601 WHERE id IN ('no-data-old', 'running');"
       "UPDATE properties SET value = 'x' WHERE name = 'data' AND "
       "task = (SELECT seq FROM tasks WHERE id = 'damaged')");
  EXPECT_EQ(tasks::EndRecordsOfDeadWorkers(user_, 0, kLost), 4);
  for (const tasks::Record& record : tasks::List(user_)) {
    const bool left = record.id == "running" || record.id == "no-data-new";
    EXPECT_EQ(record.finished, !left) << record.id;
    EXPECT_EQ(record.data.isObject() && record.data.isMember("errors"),
              !left && record.id != "finished")
        << record.id;
  }
  EXPECT_EQ(tasks::EndRecordsOfDeadWorkers(user_, worker.pid(), kLost), 1)
      << "known to be gone, whatever the process table says";
  EXPECT_EQ(tasks::EndRecordsOfDeadWorkers("no-such-user", 0, kLost), 0);
}

// The worker of the second finishes just when the first is ended, after both were found unfinished.
TEST_F(WorkerTest, AnEndThatTheWorkerWroteAtTheLastMomentStands) {
  Child worker(&Sleep);
  RecordOf("first", worker.pid());
  RecordOf("second", worker.pid());
  Edit(user_,
       "CREATE TRIGGER meanwhile AFTER UPDATE OF finished ON tasks WHEN new.id = 'first' "
       "BEGIN UPDATE tasks SET finished = 1 WHERE id = 'second'; END");
  EXPECT_EQ(tasks::EndRecordsOfDeadWorkers(user_, worker.pid(), kLost), 1);
  EXPECT_FALSE(Stored("second").data.isMember("errors"));
}

TEST_F(WorkerTest, StoppingReachesTheWorkerOfTheRecord) {
  Child worker(&Sleep);
  const auto task = RecordOf("t", worker.pid());
  EXPECT_TRUE(DoKill(worker.pid()));
  EXPECT_EQ(worker.Wait(), -SIGTERM);
}

TEST_F(WorkerTest, StoppingNeverReachesAProcessThatGotThePidLater) {
  Child bystander(&Sleep);
  const auto task = RecordOf("t", bystander.pid());
  Edit(user_, "UPDATE tasks SET pid_start = pid_start - 1");
  EXPECT_TRUE(DoKill(bystander.pid())) << "the worker is gone";
  // Writing the record again does not make the bystander its worker.
  EXPECT_TRUE(SaveTaskData(task.get(), DataWithPid(bystander.pid()), 0.6F));
  EXPECT_TRUE(DoKill(bystander.pid()));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(waitpid(bystander.pid(), nullptr, WNOHANG), 0) << "still running";
}

TEST_F(WorkerTest, StoppingAWorkerThatIsGoneSucceedsAndAForeignPidIsRefused) {
  Child worker(&Sleep);
  const pid_t pid = worker.pid();
  const auto task = RecordOf("t", pid);
  kill(pid, SIGKILL);
  worker.BecomeZombie();
  EXPECT_TRUE(DoKill(pid)) << "a zombie";
  worker.Kill();
  EXPECT_TRUE(DoKill(pid)) << "no process";

  Child stranger(&Sleep);
  EXPECT_FALSE(DoKill(stranger.pid()));
  for (const int bad : {1, 0, -1}) EXPECT_FALSE(DoKill(bad));
  EXPECT_EQ(waitpid(stranger.pid(), nullptr, WNOHANG), 0) << "still running";
}

}  // namespace
