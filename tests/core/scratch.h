// A folder of a test's own, removed with all that is in it.
#pragma once

#include <gtest/gtest.h>

#include "tests/common/scratch.h"

class Scratch : public ::testing::Test {
 protected:
  explicit Scratch(const std::filesystem::path& below = std::filesystem::temp_directory_path())
      : folder_(below) {}

  std::string At(const std::string& name) const { return folder_ / name; }
  void Write(const std::string& name, const std::string& content) const {
    WriteFile(At(name), content);
  }
  std::string Content(const std::string& name) const { return ReadFile(At(name)); }

  const TempFolder folder_;
  const std::string path_ = folder_.path();
};
