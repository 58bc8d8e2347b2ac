#include <chrono>
#include <thread>

#include "store_fixture.h"

namespace {

using Clock = std::chrono::steady_clock;

class WaitTest : public StoreTest {};

TEST_F(WaitTest, AnswersWhenAnotherProcessWritesTheData) {
  const auto task = Make("ann", "t");
  Child writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Json::Value data(Json::objectValue);
    const auto mine = Get("ann", "t");
    if (!mine->setProperty("data", data)) return 1;
    data["pid"] = static_cast<int>(getpid());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return mine->setProperty("data", data) ? 0 : 1;
  });
  const auto begin = Clock::now();
  EXPECT_TRUE(WaitForTaskDataReady(task.get(), "data", 60));
  EXPECT_TRUE(task->getProperty("data").isObject());
  EXPECT_TRUE(WaitForTaskDataKeyReady(task.get(), "data", "pid", 60));
  EXPECT_TRUE(task->getProperty("data").isMember("pid"));
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(30));
  EXPECT_EQ(writer.Wait(), 0);
}

TEST_F(WaitTest, GivesUpWhenTheTimeIsOver) {
  const auto task = Make("ann", "t");
  const auto begin = Clock::now();
  EXPECT_FALSE(WaitForTaskDataReady(task.get(), "data", 1));
  EXPECT_GE(Clock::now() - begin, std::chrono::seconds(1));

  ASSERT_TRUE(task->setProperty("data", 5));
  EXPECT_FALSE(WaitForTaskDataKeyReady(task.get(), "data", "pid", 0));
  EXPECT_TRUE(WaitForTaskDataReady(task.get(), "data", 0)) << "one look at least";
}

// A signal that got lost or came too early costs a look more, never the record.
TEST_F(WaitTest, AChildSeesWhatItsParentWroteBeforeAndDuringTheWait) {
  for (const int pause : {0, 5, 60}) {
    const std::string id = "t" + std::to_string(pause);
    const auto task = Make("ann", id.c_str());
    Child worker([&] { return WaitForTaskDataReady(task.get(), "data", 60) ? 0 : 1; });
    std::this_thread::sleep_for(std::chrono::milliseconds(pause));
    ASSERT_TRUE(task->setProperty("data", DataWithPid(worker.pid())));
    EXPECT_EQ(worker.Wait(), 0) << pause;
    ASSERT_TRUE(task->setProperty("late", 1)) << "the parent's store outlives its child";
  }
}

TEST_F(WaitTest, EndsAtOnceForARecordThatIsGone) {
  const auto task = Make("ann", "t");
  Child remover([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return Get("ann", "t")->remove() ? 0 : 1;
  });
  const auto begin = Clock::now();
  EXPECT_FALSE(WaitForTaskDataReady(task.get(), "data", 60));
  EXPECT_FALSE(WaitForTaskDataKeyReady(task.get(), "data", "pid", 60));
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(30));
  EXPECT_EQ(remover.Wait(), 0);
  EXPECT_FALSE(WaitForTaskDataReady(nullptr, "data", 60));
}

}  // namespace
