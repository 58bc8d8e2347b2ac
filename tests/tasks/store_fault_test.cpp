#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <thread>
#include <vector>

#include "store_fixture.h"

namespace {

using Clock = std::chrono::steady_clock;

class StoreFaultTest : public StoreTest {
 protected:
  // A process that holds the store's exclusive lock; returns once it has it.
  std::unique_ptr<Child> LockFor(std::chrono::milliseconds time) const {
    int ready[2];
    if (pipe(ready) != 0) return nullptr;
    auto holder = std::make_unique<Child>([&] {
      sqlite3* handle = nullptr;
      sqlite3_open(StoreFile("ann").c_str(), &handle);
      sqlite3_exec(handle, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
      const bool told = write(ready[1], "x", 1) == 1;
      std::this_thread::sleep_for(time);
      return told ? 0 : 1;
    });
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    close(ready[1]);
    return holder;
  }
};

TEST_F(StoreFaultTest, AShortLockIsWaitedFor) {
  const auto task = Make("ann", "t");
  const auto holder = LockFor(std::chrono::milliseconds(500));
  EXPECT_TRUE(task->reload());
  EXPECT_TRUE(task->setProperty("data", 1));
}

TEST_F(StoreFaultTest, ALockThatStaysMakesCallsFailAfterTheTimeout) {
  const auto task = Make("ann", "t");
  ASSERT_TRUE(task->setProperty("data", 1));
  const auto holder = LockFor(std::chrono::minutes(10));
  const std::vector<std::function<bool()>> calls = {
      [] { return Get("ann", "t")->setProperty("data", 2); },
      [] { return Get("ann", "t")->remove(); },
      [] { return !tasks::List("ann").empty(); },
      [] { return tasks::EndRecordsOfDeadWorkers("ann", 0, 1) != 0; },
      [] { return Make("ann", "u") != nullptr; },
      [&] { return task->reload(); },
  };
  const auto begin = Clock::now();
  std::vector<std::unique_ptr<Child>> callers;
  for (const auto& call : calls) {
    callers.push_back(std::make_unique<Child>([&call] {
      try {
        return call() ? 1 : 0;
      } catch (const KVX::TaskError&) {
        return 0;
      }
    }));
  }
  for (const auto& caller : callers) EXPECT_EQ(caller->Wait(), 0);
  EXPECT_GE(Clock::now() - begin, std::chrono::seconds(9));
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(60));
  holder->Kill();
  EXPECT_TRUE(task->reload());
  EXPECT_EQ(task->getProperty("data"), Json::Value(1));
}

TEST_F(StoreFaultTest, ADamagedStoreMakesCallsFailAndIsLeftAsItIs) {
  const auto task = Make("ann", "t");
  ASSERT_TRUE(task->setProperty("data", DataWithPid(getpid())));
  const std::string file = StoreFile("ann");
  const auto size = std::filesystem::file_size(file);

  const auto overwrite = [&](std::streamoff from, std::size_t bytes) {
    std::fstream(file, std::ios::in | std::ios::out | std::ios::binary).seekp(from)
        << std::string(bytes, 'Z');
  };
  const std::vector<std::function<void()>> damages = {
      [&] { overwrite(4096, size - 4096); },
      [&] { std::filesystem::resize_file(file, size - 4096); },
      [&] { overwrite(0, size); },
  };
  for (std::size_t i = 0; i < damages.size(); ++i) {
    damages[i]();
    const auto before = std::filesystem::file_size(file);
    EXPECT_THROW(Make("ann", "u"), KVX::TaskError) << i;
    EXPECT_THROW(Get("ann", "t"), KVX::TaskError) << i;
    EXPECT_FALSE(task->reload()) << i;
    EXPECT_FALSE(task->setProperty("data", 1)) << i;
    EXPECT_FALSE(RecoverTaskData(task.get(), Json::Value(1))) << i;
    EXPECT_FALSE(task->isFinished()) << i;
    EXPECT_FALSE(task->remove()) << i;
    EXPECT_FALSE(WaitForTaskDataReady(task.get(), "data", 60)) << i;
    EXPECT_FALSE(task->sendNotifyMessageNoEncode("a", "t", "c", "t", nullptr)) << i;
    EXPECT_TRUE(tasks::List("ann").empty()) << i;
    EXPECT_EQ(tasks::EndRecordsOfDeadWorkers("ann", 0, 1), 0) << i;
    EXPECT_FALSE(DoKill(getpid())) << i;
    CleanTimeOutTasks("ann");
    EXPECT_EQ(std::filesystem::file_size(file), before) << i;
  }
}

// Only a power cut leaves a damaged store that nobody has written since.
TEST_F(StoreFaultTest, AStoreDamagedBeforeTheMachineStartedMakesWayForANewOne) {
  const std::string file = StoreFile("ann");
  const auto make_old = [&] {
    const timespec times[2] = {{1, 0}, {1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  };
  Make("ann", "t");
  make_old();
  EXPECT_EQ(Make("ann", "u")->getTaskId(), "u");
  EXPECT_EQ(tasks::List("ann").size(), 2U) << "a sound one stays";

  for (const std::streamoff from : {4096, 0}) {
    const auto task = Get("ann", "u");
    std::fstream(file, std::ios::in | std::ios::out | std::ios::binary).seekp(from)
        << std::string(20000, 'Z');
    make_old();
    EXPECT_FALSE(task->setProperty("data", 1));
    EXPECT_FALSE(task->remove());
    EXPECT_EQ(Make("ann", "u")->getTaskId(), "u") << from;
    EXPECT_EQ(tasks::List("ann").size(), 1U) << from;
  }
  int kept = 0;
  for (const auto& entry : std::filesystem::directory_iterator(state_ + "/users/ann")) {
    const std::string name = entry.path().filename();
    kept += name.find(".damaged-") != std::string::npos && name.back() != 'l' ? 1 : 0;
  }
  EXPECT_EQ(kept, 2);
}

TEST_F(StoreFaultTest, AStoreThatIsNoFileIsRefused) {
  Make("ann", "t");
  Make("bob", "t");
  std::filesystem::remove(StoreFile("ann"));
  std::filesystem::create_symlink(StoreFile("bob"), StoreFile("ann"));
  EXPECT_THROW(Get("ann", "t"), KVX::TaskError);
  EXPECT_THROW(Make("ann", "u"), KVX::TaskError);
  EXPECT_EQ(tasks::List("bob").size(), 1U);
}

TEST_F(StoreFaultTest, AStoreThatMadeWayForAnotherIsNotUsedAnyMore) {
  const auto task = Make("ann", "t");
  std::filesystem::rename(StoreFile("ann"), StoreFile("ann") + ".old");
  EXPECT_FALSE(task->reload());
  Make("ann", "u");
  EXPECT_FALSE(task->setProperty("data", 1));
  EXPECT_EQ(tasks::List("ann").size(), 1U);
}

TEST_F(StoreFaultTest, ErrnoIsTheCallersOwn) {
  const auto task = Make("ann", "t");
  errno = ENOSPC;
  EXPECT_TRUE(SaveTaskData(task.get(), DataWithPid(getpid()), 0.5F));
  EXPECT_TRUE(task->reload());
  EXPECT_EQ(errno, ENOSPC);
}

// A copy that fills the server's own file system is what the record must tell.
TEST_F(StoreFaultTest, AFullFileSystemStillTakesTheEndOfATask) {
  if (geteuid() != 0 || mount("tmpfs", state_.c_str(), "tmpfs", 0, "size=2m,mode=0755") != 0) {
    GTEST_SKIP() << "needs root and the right to mount";
  }
  struct Unmount {
    const std::string& folder;
    ~Unmount() { umount2(folder.c_str(), MNT_DETACH); }
  } unmount{state_};
  {
    const auto task = Make("ann", "t");
    EXPECT_TRUE(SaveTaskData(task.get(), DataWithPid(getpid()), 0.1F));
    std::ofstream filler(state_ + "/filler");
    while (filler << std::string(4096, 'x') && filler.flush()) {
    }
    ASSERT_EQ(std::filesystem::space(state_).available, 0U);
    EXPECT_TRUE(task->reload());
    EXPECT_TRUE(SaveTaskData(task.get(), DataWithPid(getpid()), 0.2F));
    Json::Value large = DataWithPid(getpid());
    large["filler"] = std::string(4U << 20U, 'x');
    EXPECT_FALSE(SaveTaskData(task.get(), large, 0.3F));
    EXPECT_TRUE(task->reload());
    EXPECT_NEAR(task->getDoubleProperty("progress", 0), 0.2, 0.001);
    EXPECT_TRUE(task->finish(false));
    EXPECT_TRUE(task->isFinished());
    EXPECT_TRUE(task->remove());
  }
}

}  // namespace
