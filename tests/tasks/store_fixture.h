// A state folder of its own for each test, and other processes to share it with.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "core/config.h"
#include "tasks/store.h"
#include "tasks/task.h"
#include "tasks/task_helpers.h"
#include "tests/common/scratch.h"
#include "tests/common/sql.h"

// A forked process that is killed and reaped with its owner.
class Child {
 public:
  explicit Child(const std::function<int()>& run) : pid_(fork()) {
    if (pid_ == 0) _exit(run());
  }
  ~Child() { Kill(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t pid() const { return pid_; }
  // Exit status, or minus the signal that ended it.
  int Wait() {
    int status = 0;
    if (pid_ <= 0 || waitpid(pid_, &status, 0) != pid_) return -1000;
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  void Kill() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  // Waits for the end without reaping.
  void BecomeZombie() const {
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
  }

 private:
  pid_t pid_;
};

inline int Sleep() {
  for (;;) pause();
}

class StoreTest : public testing::Test {
 protected:
  StoreTest() {
    core::Config config;
    config.server.state = state_;
    core::SetConfig(config);
  }

  static std::unique_ptr<KVX::Task> Make(const char* user, const char* id) {
    return std::make_unique<KVX::Task>(user, id);
  }
  static std::unique_ptr<KVX::Task> Get(const char* user, const char* id) {
    return std::unique_ptr<KVX::Task>(KVX::TaskMgr(user).getTaskWithThrow(id));
  }

  std::string StoreFile(const std::string& user) const {
    return state_ + "/users/" + user + "/tasks.db";
  }

  // Changes a store behind the library's back.
  void Edit(const std::string& user, const std::string& sql) const { Sql(StoreFile(user), sql); }

  static Json::Value DataWithPid(pid_t pid) {
    Json::Value data(Json::objectValue);
    data["pid"] = static_cast<int>(pid);
    data["path"] = "/photos/a.jpg";
    data["status"] = "PROCESSING";
    return data;
  }

  const TempFolder folder_;
  const std::string state_ = folder_.path();
};
