#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "core/config.h"
#include "core/process.h"
#include "tests/common/scratch.h"
#include "vfs/vfs.h"

namespace {

using TAVOVFS::TaskMgr;

// Answers of the probe by task id; an id that is missing is running.
using Answers = std::map<std::string, int>;

int Probe(const char* /*queue*/, const char* id, int /*pid*/, void* user) {
  const auto* answers = static_cast<const Answers*>(user);
  const auto found = answers->find(id);
  return found == answers->end() ? 1 : found->second;
}

class QueueTest : public testing::Test {
 protected:
  QueueTest() {
    core::Config config;
    config.server.state = state_;
    core::SetConfig(config);
  }
  ~QueueTest() override {
    while (!children_.empty()) End(children_.back());
  }

  // A living process for an entry.
  pid_t Owner() {
    const pid_t pid = fork();
    if (pid == 0) {
      for (;;) pause();
    }
    children_.push_back(pid);
    return pid;
  }
  // Once only: a reaped pid may be anybody's.
  void End(pid_t pid) {
    if (std::erase(children_, pid) == 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  bool Runnable(const char* id, pid_t pid) {
    return queue_.IsRunnable("queue", id, pid, &Probe, &answers_) != 0;
  }
  void Leave(const char* id, pid_t pid, bool all = true) {
    queue_.Clean("queue", id, pid, &Probe, &answers_, all);
  }
  std::string File() const { return state_ + "/run/vfs-queue"; }
  std::string Text() const { return ReadFile(File()); }
  void Append(const std::string& before_end) const {
    std::string text = Text();
    text.insert(text.rfind("end\n"), before_end);
    std::ofstream(File()) << text;
  }

  TaskMgr queue_{3};
  Answers answers_;
  const TempFolder folder_;
  const std::string state_ = folder_.path();
  std::vector<pid_t> children_;
};

TEST_F(QueueTest, OnlyTheFirstOnesRunAndTheNextFollowsInOrder) {
  const std::vector<const char*> ids = {"a", "b", "c", "d", "e"};
  std::vector<pid_t> pids;
  for (const char* id : ids) {
    pids.push_back(Owner());
    ASSERT_TRUE(queue_.Add("queue", id, pids.back()));
  }
  const auto runnable = [&] {
    std::string list;
    for (std::size_t i = 0; i < ids.size(); ++i) {
      if (answers_.count(ids[i]) == 0 && Runnable(ids[i], pids[i])) list += ids[i];
    }
    return list;
  };
  EXPECT_EQ(runnable(), "abc");
  Leave("b", pids[1], false);
  answers_["b"] = 0;
  EXPECT_EQ(runnable(), "acd");
  const pid_t other = Owner();
  ASSERT_TRUE(queue_.Add("other", "x", other));
  EXPECT_TRUE(queue_.IsRunnable("other", "x", other, &Probe, &answers_) != 0)
      << "queues do not count each other's tasks";
  EXPECT_EQ(queue_.IsRunnable("other", "y", pids[0], nullptr, nullptr), 1) << "joins by itself";
}

TEST_F(QueueTest, AKilledOwnerAndAReusedPidMakeRoom) {
  std::vector<pid_t> pids;
  for (const char* id : {"a", "b", "c", "d", "e"}) {
    pids.push_back(Owner());
    ASSERT_TRUE(queue_.Add("queue", id, pids.back()));
  }
  EXPECT_FALSE(Runnable("d", pids[3]));
  kill(pids[0], SIGKILL);
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(pids[0]), &info, WEXITED | WNOWAIT);
  EXPECT_TRUE(Runnable("d", pids[3])) << "a zombie holds no place";

  EXPECT_FALSE(Runnable("e", pids[4]));
  std::string text = Text();
  const std::string start = std::to_string(*core::ProcessStartTime(pids[1]));
  text.replace(text.find(" " + start + " "), start.size() + 2, " 1 ");
  std::ofstream(File()) << text;
  EXPECT_TRUE(Runnable("e", pids[4])) << "the pid is another process's now";
}

TEST_F(QueueTest, TheProbeSpeaksOnlyForTasksOfTheSameUser) {
  std::vector<pid_t> pids;
  for (const char* id : {"mine", "foreign1", "foreign2", "last"}) {
    pids.push_back(Owner());
    ASSERT_TRUE(queue_.Add("queue", id, pids.back()));
  }
  std::string text = Text();
  const std::string uid = " " + std::to_string(geteuid()) + " queue foreign";
  for (std::size_t at = text.find(uid); at != std::string::npos; at = text.find(uid)) {
    text.replace(at, uid.size(), " 4711 queue foreign");
  }
  std::ofstream(File()) << text;

  answers_ = {{"foreign1", 0}, {"foreign2", 0}};
  EXPECT_FALSE(Runnable("last", pids[3])) << "another user's task is not ours to call over";
  answers_["mine"] = -1;
  EXPECT_FALSE(Runnable("last", pids[3]));
  answers_["mine"] = 0;
  EXPECT_TRUE(Runnable("last", pids[3]));
  answers_["last"] = 0;
  EXPECT_TRUE(Runnable("last", pids[3])) << "its own place is not asked about";
}

TEST_F(QueueTest, LeavingTakesOutOnlyTheOwnEntryUnlessToldToTidy) {
  const pid_t first = Owner();
  const pid_t second = Owner();
  const pid_t third = Owner();
  ASSERT_TRUE(queue_.Add("queue", "a", first));
  ASSERT_TRUE(queue_.Add("queue", "b", second));
  ASSERT_TRUE(queue_.Add("queue", "c", third));
  End(second);
  Leave("a", first, false);
  EXPECT_THAT(Text(), testing::HasSubstr(" b\n"));
  EXPECT_THAT(Text(), testing::Not(testing::HasSubstr(" a\n")));
  Leave("x", first, true);
  EXPECT_THAT(Text(), testing::Not(testing::HasSubstr(" b\n")));
  EXPECT_THAT(Text(), testing::HasSubstr(" c\n"));
}

// The count of processes inside is shared memory, so a slip cannot hide.
TEST_F(QueueTest, ManyProcessesNeverRunMoreThanTheSlots) {
  struct Shared {
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::atomic<int> done{0};
  };
  void* memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* shared = new (memory) Shared;
  for (int i = 0; i < 9; ++i) {
    const pid_t pid = fork();
    if (pid == 0) {
      const std::string id = "t" + std::to_string(i);
      if (!queue_.Add("queue", id.c_str(), getpid())) _exit(1);
      while (!Runnable(id.c_str(), getpid())) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      const int inside = ++shared->inside;
      int most = shared->most;
      while (inside > most && !shared->most.compare_exchange_weak(most, inside)) {
      }
      // Stays until two have met, however slowly the machine forks, and a while longer.
      for (int round = 0; round < 5000 && shared->most < 2; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      --shared->inside;
      ++shared->done;
      if (i % 3 == 0) kill(getpid(), SIGKILL);  // leaves its entry behind
      Leave(id.c_str(), getpid());
      _exit(0);
    }
    children_.push_back(pid);
  }
  for (const pid_t pid : children_) EXPECT_EQ(waitpid(pid, nullptr, 0), pid);
  children_.clear();
  EXPECT_EQ(shared->done, 9);
  EXPECT_LE(shared->most, 3);
  EXPECT_GE(shared->most, 2) << "tasks ran side by side";
  munmap(memory, sizeof(Shared));
}

TEST_F(QueueTest, ADamagedFileIsReadAsFarAsItMakesSense) {
  const pid_t pid = Owner();
  ASSERT_TRUE(queue_.Add("queue", "a", pid));
  Append("-5 1 0 queue x\n0 0 0 queue x\n99 99\nqueue queue queue\n\n1 1 0 queue x y\n" +
         std::string(3000, 'q') + "\n");
  std::ofstream(File(), std::ios::app) << pid << " 1 0 queue after-the-end\n";
  EXPECT_TRUE(Runnable("a", pid));
  const pid_t next = Owner();
  EXPECT_TRUE(queue_.Add("queue", "b", next));
  EXPECT_TRUE(Runnable("b", next));
  std::ofstream(File()) << std::string(100, '\0');
  EXPECT_TRUE(Runnable("b", next)) << "a task that has lost its place joins again";
}

TEST_F(QueueTest, WhatCannotBeAnEntryIsRefused) {
  const pid_t pid = Owner();
  for (const char* id : {"", "a b", "a\nb", "\xff"}) EXPECT_FALSE(queue_.Add("queue", id, pid));
  EXPECT_FALSE(queue_.Add(nullptr, "a", pid));
  EXPECT_FALSE(queue_.Add("queue", nullptr, pid));
  EXPECT_FALSE(queue_.Add("queue", "a", 0));
  EXPECT_FALSE(queue_.Add("queue", std::string(300, 'a').c_str(), pid));
  End(pid);
  EXPECT_FALSE(queue_.Add("queue", "a", pid)) << "nobody there";
}

TEST_F(QueueTest, AHeldLockAndAMissingFolderMakeCallsFailNotHang) {
  const pid_t pid = Owner();
  ASSERT_TRUE(queue_.Add("queue", "a", pid));
  const int fd = open(File().c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(fd, LOCK_EX), 0);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(queue_.Add("queue", "b", pid));
  EXPECT_FALSE(Runnable("a", pid));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
  close(fd);
  EXPECT_TRUE(Runnable("a", pid));

  core::SetConfig({});
  EXPECT_FALSE(queue_.Add("queue", "b", pid));
  EXPECT_FALSE(vfs::PrepareQueue());
}

TEST_F(QueueTest, OtherUsersMayUseThePreparedFileButNotReplaceIt) {
  umask(077);
  ASSERT_TRUE(vfs::PrepareQueue());
  struct stat file {};
  struct stat folder {};
  ASSERT_EQ(stat(File().c_str(), &file), 0);
  ASSERT_EQ(stat((state_ + "/run").c_str(), &folder), 0);
  EXPECT_EQ(file.st_mode & 07777U, 0666U);
  EXPECT_EQ(folder.st_mode & 0022U, 0U);
  if (geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
  EXPECT_EQ(AsNobody([&] {
              const bool works = queue_.Add("queue", "a", getpid()) && Runnable("a", getpid());
              return works && unlink(File().c_str()) != 0 ? 0 : 1;
            }),
            0);
}

}  // namespace
