// The request base and the dispatch of methods.
#include <sys/stat.h>

#include "module_fixture.h"
#include "webapi/api_table.h"
#include "webapi/log.h"
#include "webapi/module_state.h"
#include "webapi/paths.h"

using namespace Fennox;

namespace {

TEST_F(ModuleTest, TableListsNineMethodsAndEndsWithZeroes) {
  const APITableEntry* row = GetAPITable();
  const char* const methods[] = {"start", "status", "stop"};
  for (int i = 0; i < 9; ++i, ++row) {
    EXPECT_STREQ(row->api, "TAVO.Fennox.CopyMove");
    EXPECT_EQ(row->version, i / 3 + 1);
    EXPECT_STREQ(row->method, methods[i % 3]);
    EXPECT_EQ(row->handler, GetAPITable()->handler);
  }
  EXPECT_EQ(row->api, nullptr);
  EXPECT_EQ(row->version, 0);
  EXPECT_EQ(row->method, nullptr);
  EXPECT_EQ(row->handler, nullptr);
}

TEST_F(ModuleTest, MethodNamesAreCaseSensitive) {
  for (const char* method : {"Start", "STATUS", "stop ", "", "delete"}) {
    const Outcome outcome = Serve(method, Parse(R"({"taskid":"x"})"));
    EXPECT_EQ(outcome.code, 101) << method;
    EXPECT_TRUE(outcome.data.isNull());
  }
}

TEST_F(ModuleTest, UmaskIsPutBackAfterTheRequest) {
  const mode_t before = umask(0077);
  Serve("status", Parse(R"({"taskid":"x"})"));
  EXPECT_EQ(umask(before), 0077U);
}

TEST_F(ModuleTest, UnknownLoginUserIsRefusedBeforeTheMethodRuns) {
  TAVO::APIRequestData data;
  data.method = "status";  // would answer 400
  data.loginUser = "no-such-user-here";
  TAVO::APIRequest request(data);
  TAVO::APIResponse response;
  testing::internal::CaptureStderr();
  MVCPWebAPIEntry(&request, &response);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(response.code(), WfmLibGetErr());
  EXPECT_NE(response.code(), 0);
  EXPECT_NE(response.code(), 400);
  EXPECT_NE(log.find("webfm_webapi:54 Failed to set UGID, "), std::string::npos) << log;
}

TEST_F(ModuleTest, LastResultWins) {
  FennoxMVCPHandler& handler = Handler("status");
  Json::Value answer = Parse(R"({"a":1})");
  handler.SetResponse(answer);
  handler.SetError(400);
  EXPECT_EQ(Delivered().code, 400);
  EXPECT_TRUE(Delivered().data.isNull());
  handler.SetResponse(answer);
  EXPECT_EQ(Delivered().code, 0);
  EXPECT_EQ(Delivered().data, answer);
  handler.SetFileError(1002, "/docs/x", 407);
  EXPECT_EQ(Delivered().code, 1002);
  EXPECT_EQ(Delivered().data, Parse(R"([{"code":407,"path":"/docs/x"}])"));
}

TEST_F(ModuleTest, HandlerGivesUpItsTask) {
  TAVO::APIRequest request{TAVO::APIRequestData()};
  TAVO::APIResponse response;
  NewTask();
  { const FennoxMVCPHandler handler(&request, &response); }
  EXPECT_EQ(_task, nullptr);
  { const FennoxMVCPHandler handler(&request, &response); }
}

TEST_F(ModuleTest, LogLinesKeepErrnoAndStayOneLine) {
  testing::internal::CaptureStderr();
  errno = ENOSPC;
  LogError(12, "name %s, reason=[%X]", "a\nb", 0x2AU);
  EXPECT_EQ(errno, ENOSPC);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("TAVO.Fennox.CopyMove:12 name a?b, reason=[2A]\n"), std::string::npos) << log;
}

TEST_F(ModuleTest, LastComponentOfAPath) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a/b", "b"}, {"/a/b//", "b"}, {"/", "/"}, {"b", "b"}, {"", "."}};
  for (const auto& [path, expected] : cases) EXPECT_EQ(LastComponent(path), expected) << path;
}

}  // namespace
