// A worker's state on a temporary folder, with its log lines caught.
#pragma once

#include <gtest/gtest.h>
#include <json/value.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/common/scratch.h"
#include "webapi/handler.h"

// Lines sent to the system log since the test began.
std::vector<std::string> LogLines();
// How many of them come from the module under this number.
int Logged(int number);

// Calls that set "tavo::cacheclean"; the file is made after the first one when
// `makeAfterFirstMark` names it.
inline int staleMarks = 0;
inline std::string makeAfterFirstMark;

// errno with which every rename fails, 0 for none.
inline int renameFailure = 0;

class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  std::string At(const std::string& rest) const { return root_ / rest; }
  void Folder(const std::string& rest) const;
  void Write(const std::string& rest, const std::string& content) const;
  // The file's content, "(none)" without one.
  std::string Read(const std::string& rest) const;
  // A folder on another file system than At's; empty when there is none.
  std::string OtherVolume();

  Fennox::FennoxMVCPHandler& Handler(const Json::Value& params = Json::objectValue,
                                     const std::string& user = "");
  // Codes in the record's failure list.
  std::vector<int> FailureCodes() const;
  std::string taskId() const;

  const TempFolder folder_;
  const std::filesystem::path root_ = folder_.path();
  std::optional<TempFolder> other_;

 private:
  std::unique_ptr<TAVO::APIRequest> request_;
  std::unique_ptr<TAVO::APIResponse> response_;
  std::optional<Fennox::FennoxMVCPHandler> handler_;
};

Fennox::ENTRY_STAT Entry(const std::string& sharePath, int overwriteMode = 0, int error = 0);
