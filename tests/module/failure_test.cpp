// Failures in the record and to the user.
#include "module_fixture.h"
#include "tasks/store.h"
#include "tests/common/sql.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

TEST_F(ModuleTest, FailuresAreListedInTheirOrder) {
  FennoxMVCPHandler& handler = Handler("start");
  NewTask(Parse(R"({"pid":1,"status":"PROCESSING"})"));
  EXPECT_TRUE(handler.MVCPUpdateFailFile(ACTION_COPY, "/docs/<a>&b", WEBFM_TYPE_CONFLICT, nullptr));
  EXPECT_TRUE(_hadFailure);
  EXPECT_EQ(StoredData(), Parse(R"({"pid":1,"status":"FAIL",
      "errors":[{"code":1004,"path":"/docs/<a>&b"}],
      "notification_arg1":"filebrowser:filebrowser_copy_failed",
      "notification_arg2":"/docs/&lt;a&gt;&amp;b",
      "notification_arg3":"error:error_overwrite_fail"})"));

  Json::Value data = StoredData();
  data["status"] = "PROCESSING";
  ASSERT_TRUE(_task->setProperty("data", data));
  EXPECT_TRUE(handler.MVCPUpdateFailFile(ACTION_MOVE, "/docs/c", WEBFM_FILE_TOO_BIG, "docs"));
  data = StoredData();
  EXPECT_EQ(data["status"], "PROCESSING");
  EXPECT_EQ(data["errors"][1], Parse(R"({"code":1007,"path":"/docs/c"})"));
  EXPECT_EQ(data["notification_arg1"], "filebrowser:filebrowser_move_failed");
  EXPECT_EQ(data["notification_arg3"], "error:mvcp_file_too_big");
}

TEST_F(ModuleTest, ErrorKeys) {
  FennoxMVCPHandler& handler = Handler("start");
  NewTask(Parse("{}"));
  const std::pair<int, std::string> cases[] = {
      {1003, "error:error_select_conflict"},   {1004, "error:error_overwrite_fail"},
      {1006, "error:mvcp_filename_illegal"},   {1007, "error:mvcp_file_too_big"},
      {463, WfmParseErrorToKVXString(463, 0)}, {31337, WfmParseErrorToKVXString(31337, 0)}};
  for (const auto& [code, key] : cases) {
    ASSERT_TRUE(
        handler.MVCPUpdateFailFile(ACTION_COPY, "/docs/a", static_cast<WEBFMERR>(code), ""));
    EXPECT_EQ(StoredData()["notification_arg3"], key) << code;
  }
}

TEST_F(ModuleTest, OwnerToBeMessagedIsToldAtOnce) {
  FennoxMVCPHandler& handler = Handler("start");
  NewTask(Parse("{}")).setProperty("blMsg", true);
  EXPECT_TRUE(handler.MVCPUpdateFailFile(ACTION_COPY, "/docs/a&b\nc", WEBFM_CONFLICT, ""));
  EXPECT_TRUE(handler.MVCPUpdateFailFile(ACTION_MOVE, "/docs/a&b\nc", WEBFM_CONFLICT, ""));
  EXPECT_FALSE(StoredData().isMember("notification_arg1"));
  const Json::Value sent = tasks::Notifications(CurrentUser(), 10);
  ASSERT_EQ(sent.size(), 2U);
  const Json::Value& move = sent[0];
  EXPECT_EQ(move["app"], "TAVO.ZUL.App.Fennox3.Instance");
  EXPECT_EQ(move["taskid"], _task->getTaskId());
  EXPECT_EQ(move["category"], "tree:leaf_filebrowser");
  EXPECT_EQ(move["title"], "filebrowser:filebrowser_move_failed");
  EXPECT_EQ(move["args"], Parse(R"(["/docs/a&amp;b\nc","error:error_select_conflict"])"));
  EXPECT_EQ(sent[1]["title"], "filebrowser:filebrowser_copy_failed");
  EXPECT_EQ(sent[1]["args"], Parse(R"(["/docs/a&amp;b<br>c","error:error_select_conflict"])"));
}

TEST_F(ModuleTest, FailureOfALostRecord) {
  FennoxMVCPHandler& handler = Handler("start");
  NewTask();
  testing::internal::CaptureStderr();
  EXPECT_FALSE(handler.MVCPUpdateFailFile(ACTION_COPY, "/docs/a", WEBFM_CONFLICT, ""));
  EXPECT_NE(
      testing::internal::GetCapturedStderr().find(
          "TAVO.Fennox.CopyMove:1924 Failed to get json data, and failed to recover json data\n"),
      std::string::npos);
  EXPECT_TRUE(_hadFailure);

  _taskDataSnapshot = Parse(R"({"pid":3})");
  EXPECT_TRUE(handler.MVCPUpdateFailFile(ACTION_COPY, "/docs/a", WEBFM_CONFLICT, ""));
  EXPECT_EQ(StoredData()["pid"], 3);

  _task->remove();
  _cancelRequested = 1;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(handler.MVCPUpdateFailFile(ACTION_COPY, "/docs/a", WEBFM_CONFLICT, ""));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(ModuleTest, FailureThatCannotBeWritten) {
  FennoxMVCPHandler& handler = Handler("start");
  NewTask(Parse("{}"));
  Sql(root() / "state/users" / CurrentUser() / "tasks.db",
      "CREATE TRIGGER full BEFORE INSERT ON properties BEGIN SELECT RAISE(ABORT, 'full'); END");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(handler.MVCPUpdateFailFile(ACTION_COPY, "/docs/a", WEBFM_CONFLICT, ""));
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "TAVO.Fennox.CopyMove:1978 Failed to write progress.\n"),
            std::string::npos);
  EXPECT_EQ(StoredData(), Parse("{}"));
}

}  // namespace
