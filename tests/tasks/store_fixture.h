// A state folder of its own for each test, and other processes to share it with.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "core/config.h"
#include "tasks/store.h"
#include "tasks/task.h"
#include "tasks/task_helpers.h"

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
    std::string pattern = testing::TempDir() + "/tasks-test-XXXXXX";
    state_ = mkdtemp(pattern.data());
    std::filesystem::permissions(state_, std::filesystem::perms(0755));
    core::Config config;
    config.server.state = state_;
    core::SetConfig(config);
  }
  ~StoreTest() override { std::filesystem::remove_all(state_); }

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
  void Edit(const std::string& user, const std::string& sql) const {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(StoreFile(user).c_str(), &handle), SQLITE_OK);
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK)
        << (message == nullptr ? "" : message);
    sqlite3_free(message);
    sqlite3_close(handle);
  }

  static Json::Value DataWithPid(pid_t pid) {
    Json::Value data(Json::objectValue);
    data["pid"] = static_cast<int>(pid);
    data["path"] = "/photos/a.jpg";
    data["status"] = "PROCESSING";
    return data;
  }

  std::string state_;
};
