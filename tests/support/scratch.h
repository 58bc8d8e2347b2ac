// A folder of a test's own, and a configuration that lives in it.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "core/config.h"
#include "tests/common/scratch.h"

class Scratch : public testing::Test {
 protected:
  Scratch() {
    config_.server.state = root_ + "/state";
    // Other users pass through to their own part of it.
    MakeDir("state", 0711);
    Apply();
  }
  ~Scratch() override { core::SetConfig({}); }

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
    WriteFile(At(rest), content);
  }

  const TempFolder folder_;
  const std::string root_ = folder_.path();
  core::Config config_;
};
