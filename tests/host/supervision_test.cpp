#include "host/server/supervision.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

#include "core/config.h"
#include "tasks/store.h"
#include "tasks/task.h"
#include "temporary_state.h"

namespace host {
namespace {

using std::chrono::milliseconds;

TEST(Supervision, ALookEndsTheRecordsOfKilledWorkersOnly) {
  const std::string user = UseTemporaryState();
  const pid_t killed = ::fork();
  if (killed == 0) {
    while (true) ::pause();
  }
  const auto make = [&](const char* id, pid_t pid) {
    KVX::Task task(user.c_str(), id);
    Json::Value data(Json::objectValue);
    data["pid"] = static_cast<int>(pid);
    EXPECT_TRUE(task.setProperty("data", data));
  };
  make("dead", killed);
  make("alive", ::getpid());
  EXPECT_EQ(LookAfterUser(user), kUnfinishedLeft);
  ASSERT_EQ(::kill(killed, SIGKILL), 0);
  ASSERT_EQ(::waitpid(killed, nullptr, 0), killed);
  EXPECT_EQ(LookAfterUser(user), kUnfinishedLeft);
  tasks::Record record;
  ASSERT_TRUE(tasks::Read(user, "dead", &record));
  EXPECT_TRUE(record.finished);
  ASSERT_TRUE(tasks::Read(user, "alive", &record));
  EXPECT_FALSE(record.finished);
  const std::unique_ptr<KVX::Task> alive(KVX::TaskMgr(user.c_str()).getTaskWithThrow("alive"));
  EXPECT_TRUE(alive->remove());
  EXPECT_EQ(LookAfterUser(user), kNothingLeft);
  EXPECT_EQ(LookAfterUser("nobody-of-this-name"), kNothingLeft);
}

class WatchTest : public testing::Test {
 protected:
  void SetUp() override {
    user_ = UseTemporaryState();
    // The user needs a store to be looked after.
    KVX::Task(user_.c_str(), KVX::TaskMgr(user_.c_str()).getUniqueTaskId("Watch_").c_str());
  }

  // Starts what is due and tells whether a look started.
  bool Starts(milliseconds at) {
    const int before = started_;
    watch_.StartDue(start_ + at);
    return started_ > before;
  }
  bool Ends(LookStatus status, milliseconds at) {
    return watch_.LookEnded(started_, W_EXITCODE(status, 0), start_ + at);
  }
  int Timeout(milliseconds at) const { return watch_.TimeoutMs(start_ + at); }

  std::string user_;
  int started_ = 0;
  WorkerWatch::Clock::time_point start_ = WorkerWatch::Clock::now();
  WorkerWatch watch_{[this](const std::string& user) {
    EXPECT_EQ(user, user_);
    return ++started_;
  }};
};

TEST_F(WatchTest, ACrashIsLookedAtAtOnceAndManyCleanEndsTogether) {
  EXPECT_EQ(Timeout(milliseconds(0)), -1);
  watch_.WorkerEnded(::geteuid(), true, start_);
  watch_.WorkerEnded(::geteuid(), true, start_ + milliseconds(900));
  EXPECT_FALSE(Starts(milliseconds(999)));
  EXPECT_EQ(Timeout(milliseconds(990)), 10);
  EXPECT_TRUE(Starts(milliseconds(1000)));
  EXPECT_FALSE(Starts(milliseconds(1001)));
  EXPECT_TRUE(Ends(kNothingLeft, milliseconds(1002)));
  EXPECT_EQ(Timeout(milliseconds(1003)), -1);
  watch_.WorkerEnded(::geteuid(), false, start_ + milliseconds(2000));
  EXPECT_TRUE(Starts(milliseconds(2000)));
  watch_.WorkerEnded(::geteuid() + 1, false, start_ + milliseconds(2001));
  EXPECT_TRUE(Ends(kNothingLeft, milliseconds(2002)));
  EXPECT_FALSE(Starts(milliseconds(60000)));
}

TEST_F(WatchTest, AnEndDuringALookIsNotForgotten) {
  watch_.LookAtEveryone(start_);
  ASSERT_TRUE(Starts(milliseconds(0)));
  watch_.WorkerEnded(::geteuid(), false, start_ + milliseconds(1));
  EXPECT_FALSE(Starts(milliseconds(2)));
  EXPECT_TRUE(Ends(kNothingLeft, milliseconds(3)));
  EXPECT_TRUE(Starts(milliseconds(3)));
}

TEST_F(WatchTest, UnfinishedRecordsAreLookedAtAgainAtGrowingIntervals) {
  watch_.LookAtEveryone(start_);
  milliseconds now(0);
  ASSERT_TRUE(Starts(now));
  for (const int wait : {1000, 2000, 4000, 8000, 16000, 30000, 30000}) {
    ASSERT_TRUE(Ends(kUnfinishedLeft, now));
    EXPECT_FALSE(Starts(now + milliseconds(wait - 1))) << wait;
    now += milliseconds(wait);
    ASSERT_TRUE(Starts(now)) << wait;
  }
  EXPECT_FALSE(watch_.LookEnded(started_ + 1, 0, start_ + now));
}

}  // namespace
}  // namespace host
