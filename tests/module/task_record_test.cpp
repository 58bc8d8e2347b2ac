// First content of a record.
#include "module_fixture.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

TEST_F(ModuleTest, RecordOfALocalCopy) {
  FennoxMVCPHandler& handler = Handler("start", Parse(R"({
      "path":"/docs/a,/docs/b","dest_folder_path":"/backup,/docs","overwrite":"true,false",
      "accurate_progress":false,"rename":true,"search_taskid":"s1"})"),
                                       2);
  const std::string id = NewTask().getTaskId();
  ASSERT_TRUE(handler.MVCPInitProgressFile(4711, false));

  ASSERT_TRUE(_task->reload());
  EXPECT_EQ(_task->getProperty("progress"), Json::Value(0));
  EXPECT_TRUE(_task->getProperty("progress").isInt());
  Json::Value data = _task->getProperty("data");
  EXPECT_EQ(data[id]["action"], "copy");
  data.removeMember(id);
  Json::Value expected = Parse(R"({
      "api":"TAVO.Fennox.CopyMove","method":"start","version":2,"pid":4711,
      "path":"","processing_path":"","status":"NOT_STARTED",
      "params":{"path":["/docs/a","/docs/b"],"dest_folder_path":"/backup",
                "overwrite":"true,false","accurate_progress":false,"search_taskid":"s1"}})");
  expected["taskid"] = id;
  EXPECT_EQ(data, expected);
}

TEST_F(ModuleTest, RecordOfAMoveBetweenRemoteMounts) {
  FennoxMVCPHandler& handler = Handler("start", Parse(R"({
      "path":["sftp://nas/a","sftp://nas/b/c","sftp://unknown/x"],
      "dest_folder_path":"sftp://far/in","remove_src":true})"));
  const std::string id = NewTask().getTaskId();
  ASSERT_TRUE(handler.MVCPInitProgressFile(1, true));
  const Json::Value data = StoredData();
  EXPECT_EQ(data["is_vfs"], true);
  EXPECT_EQ(data["proc_name"], "TAVO.Fennox.CopyMove");
  EXPECT_EQ(data["vfs_uri"], Parse(R"({"sftp://nas/":true,"sftp://far/":true})"));
  EXPECT_EQ(data[id]["action"], "move");
  EXPECT_EQ(data["params"]["remove_src"], true);
}

TEST_F(ModuleTest, RecordThatIsGoneCannotBeWritten) {
  FennoxMVCPHandler& handler = Handler("start", Parse(R"({"path":"/a"})"));
  NewTask().remove();
  testing::internal::CaptureStderr();
  EXPECT_FALSE(handler.MVCPInitProgressFile(1, false));
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "TAVO.Fennox.CopyMove:330 Failed to write progress.\n"),
            std::string::npos);
  EXPECT_EQ(Delivered().code, 401);
}

}  // namespace
