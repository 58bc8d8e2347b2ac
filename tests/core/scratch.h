// A folder of a test's own, removed with all that is in it.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class Scratch : public ::testing::Test {
 protected:
  explicit Scratch(const std::filesystem::path& below = std::filesystem::temp_directory_path()) {
    std::string name = (below / "core-test-XXXXXX").string();
    path_ = ::mkdtemp(name.data());
  }
  ~Scratch() override {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string At(const std::string& name) const { return path_ + "/" + name; }

  void Write(const std::string& name, const std::string& content) const {
    std::ofstream(At(name), std::ios::binary) << content;
  }

  std::string Content(const std::string& name) const {
    std::ifstream in(At(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  std::string path_;
};
