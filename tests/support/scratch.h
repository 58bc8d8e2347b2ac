// A folder of a test's own, a configuration that lives in it, and children that
// may become somebody else.
#pragma once

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>

#include "core/config.h"

class Scratch : public testing::Test {
 protected:
  Scratch() : root_(MakeFolder()) {
    config_.server.state = root_ + "/state";
    // Other users pass through to their own part of it.
    MakeDir("state", 0711);
    Apply();
  }
  ~Scratch() override {
    core::SetConfig({});
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  void Apply() { core::SetConfig(config_); }

  void AddShare(const std::string& name, const std::string& folder) {
    core::ShareConfig share;
    share.name = name;
    share.path = root_ + "/" + folder;
    config_.shares.push_back(share);
    Apply();
  }

  std::string At(const std::string& rest) const { return root_ + "/" + rest; }

  void MakeDir(const std::string& rest, mode_t mode = 0755) const {
    std::filesystem::create_directories(At(rest));
    ASSERT_EQ(chmod(At(rest).c_str(), mode), 0);
  }

  void Write(const std::string& rest, const std::string& content) const {
    std::ofstream(At(rest), std::ios::binary) << content;
  }

  std::string root_;
  core::Config config_;

 private:
  static std::string MakeFolder() {
    std::string name = "/tmp/support_test.XXXXXX";
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    EXPECT_EQ(chmod(name.c_str(), 0755), 0);
    return std::filesystem::canonical(name);
  }
};

inline std::string OwnName() {
  const struct passwd* record = getpwuid(geteuid());
  return record ? record->pw_name : "";
}

// Starts a child that ends with the function's result.
inline pid_t StartChild(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}

inline int StatusOf(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline int InChild(const std::function<int()>& body) { return StatusOf(StartChild(body)); }
