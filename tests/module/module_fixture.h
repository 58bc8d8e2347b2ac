// One server in a temporary folder, one request at a time.
#pragma once

#include <gtest/gtest.h>
#include <json/value.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tasks/task.h"
#include "tests/common/scratch.h"
#include "webapi/handler.h"

namespace Json {
inline void PrintTo(const Value& value, std::ostream* out) { *out << value.toStyledString(); }
}  // namespace Json

struct Outcome {
  int code = 0;
  Json::Value data;
};

Json::Value Parse(const std::string& text);
inline std::string CurrentUser() { return OwnName(); }

// Runs `body` in a child process and gives what it wrote to standard error,
// which is where the system log goes, too.
std::string SaidByChild(const std::function<void()>& body);

// One server for all tests of the process; each test finds its folders empty.
// Shares below root(): "docs" and "backup" may be written, "look" only read,
// "keep" is written but nothing may be changed or deleted, "shut" may not be
// read out, "hidden" is nobody's. Remote mounts, at root()/mount-NAME:
// sftp://nas/, sftp://far/ and dropbox://box/.
class ModuleTest : public ::testing::Test {
 public:
  static const std::filesystem::path& root();

 protected:
  void SetUp() override;
  void TearDown() override;

  static std::filesystem::path Share(const std::string& name) { return root() / name; }

  std::string login = CurrentUser();  // whose requests they are

  // A handler for a request that is not run yet.
  Fennox::FennoxMVCPHandler& Handler(const std::string& method, const Json::Value& params = {},
                                     int version = 3);
  // What the handler's methods have set so far.
  Outcome Delivered();
  // Serves a whole request through the table's entry function.
  Outcome Serve(const std::string& method, const Json::Value& params, int version = 3);

  // Makes the record in hand.
  KVX::Task& NewTask(const Json::Value& data = {});
  // The record in hand as the store has it.
  Json::Value StoredData();

 private:
  void MakeRequest(const std::string& method, const Json::Value& params, int version);

  std::unique_ptr<TAVO::APIRequest> request_;
  std::unique_ptr<TAVO::APIResponse> response_;
  std::optional<Fennox::FennoxMVCPHandler> handler_;
};
