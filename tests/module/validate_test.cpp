// Which requests are refused, and how.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>

#include "module_fixture.h"
#include "task/start_context.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

class ValidateTest : public ModuleTest {
 protected:
  // Validates `sources` into `destination`; true when the request may run.
  bool Check(const Json::Value& sources, const std::string& destination,
             _tag_action_type_ action = ACTION_COPY, int mode = CONFLICT_ERROR) {
    _srcPathInfos.clear();
    start_ = std::make_unique<StartContext>(CurrentUser());
    start_->sourcePaths = sources;
    start_->overwriteMode = mode;
    // "start" takes the destination in before it refuses the value of "rename".
    Json::Value params = Parse(R"({"path":"/x","rename":7})");
    params["dest_folder_path"] = destination;
    FennoxMVCPHandler& handler = Handler("start", params);
    EXPECT_FALSE(handler.WebFMMVCPHandler());
    testing::internal::CaptureStderr();
    const bool ok = handler.PreProcessAndCheck(
        start_->sourcePaths, start_->destFolder, _srcPathInfos, action, start_->destParam,
        start_->overwriteMode, start_->srcIsVfs, start_->destIsVfs, start_->destCodePage,
        start_->srcProtocol, start_->destProtocol);
    log_ = testing::internal::GetCapturedStderr();
    return ok;
  }

  StartContext& start() { return *start_; }
  const std::string& log() const { return log_; }

 private:
  std::unique_ptr<StartContext> start_;
  std::string log_;
};

struct Refusal {
  const char* sources;
  const char* destination;
  _tag_action_type_ action;
  const char* answer;  // [code, detail]
  std::string log;     // the line begins so; "" for none
};

TEST_F(ValidateTest, EveryRefusalHasItsCodeDetailAndLogLine) {
  WriteFile(Share("docs") / "a", "a");
  WriteFile(Share("backup") / "taken", "");
  WriteFile(Share("docs") / "taken", "");
  WriteFile(Share("look") / "x", "");
  std::filesystem::create_directory(Share("mount-lone"));
  const Refusal cases[] = {
      {"[]", "/backup", ACTION_COPY, "[400,null]", ""},
      {R"(["/docs/a"])", "/nowhere/x", ACTION_COPY, R"([1002,[{"code":470,"path":"/nowhere/x"}]])",
       ""},
      {R"(["/docs/a"])", "/look", ACTION_COPY, R"([1002,[{"code":407,"path":"/look"}]])", ""},
      {R"(["/docs/a"])", "/hidden", ACTION_COPY, R"([1002,[{"code":407,"path":"/hidden"}]])", ""},
      {R"(["/docs/a"])", "sftp://unknown/x", ACTION_COPY, nullptr, ""},
      {R"(["/docs/a","/nowhere/b"])", "/backup", ACTION_COPY,
       R"([1000,[{"code":470,"path":"/nowhere/b"}]])", ""},
      {R"(["/docs/no/b"])", "/backup", ACTION_MOVE, R"([1001,[{"code":460,"path":"/docs/no/b"}]])",
       ""},
      {R"(["/docs/../x"])", "/backup", ACTION_COPY, R"([1000,[{"code":418,"path":"/docs/../x"}]])",
       ""},
      {R"(["/shut/x"])", "/backup", ACTION_COPY, R"([1000,[{"code":407,"path":"/shut/x"}]])", ""},
      {R"(["/shut/x"])", "/backup", ACTION_MOVE, R"([1001,[{"code":407,"path":"/shut/x"}]])", ""},
      {R"(["/hidden/x"])", "/backup", ACTION_COPY, R"([1000,[{"code":407,"path":"/hidden/x"}]])",
       ""},
      {R"(["/look/x"])", "/backup", ACTION_MOVE, R"([1001,[{"code":407,"path":"/look/x"}]])", ""},
      {R"(["/keep/x"])", "/backup", ACTION_MOVE, R"([1001,[{"code":407,"path":"/keep/x"}]])", ""},
      {R"(["/docs/a","/docs/taken"])", "/backup", ACTION_COPY,
       R"([1000,[{"code":1003,"path":"/docs/taken"}]])",
       "253 Invalid path:" + (Share("docs") / "taken").string() + ", reason=[1003], "},
      {R"(["/docs/taken"])", "/backup", ACTION_MOVE,
       R"([1001,[{"code":1003,"path":"/docs/taken"}]])", "253 Invalid path:"},
      {R"(["/docs/a"])", "sftp://lone/d", ACTION_COPY,
       R"([1002,[{"code":470,"path":"sftp://lone/d"}]])",
       "184 Failed to check privilege of path sftp://lone/d, reason=[470]\n"},
      {R"(["/docs/a"])", "sftp://nas/\x01", ACTION_COPY,
       R"([1002,[{"code":418,"path":"sftp://nas/\u0001"}]])", "201 Invalid path:"},
      {R"(["sftp://lone/x"])", "/backup", ACTION_MOVE,
       R"([1001,[{"code":470,"path":"sftp://lone/x"}]])", "228 Failed to get privilege of "},
  };
  for (const Refusal& c : cases) {
    SCOPED_TRACE(std::string(c.sources) + " -> " + c.destination);
    EXPECT_FALSE(Check(Parse(c.sources), c.destination, c.action));
    const Outcome outcome = Delivered();
    if (c.answer == nullptr) {
      EXPECT_NE(outcome.code, 0);
      continue;
    }
    const Json::Value expected = Parse(c.answer);
    EXPECT_EQ(outcome.code, expected[0].asInt());
    EXPECT_EQ(outcome.data, expected[1]);
    if (c.log.empty()) {
      EXPECT_EQ(log(), "");
    } else {
      EXPECT_NE(log().find("TAVO.Fennox.CopyMove:" + c.log), std::string::npos) << log();
    }
  }
}

TEST_F(ValidateTest, AcceptedRequestFillsItsOutputs) {
  WriteFile(Share("docs") / "a", "a");
  std::filesystem::create_directory(Share("backup") / "in");
  ASSERT_TRUE(Check(Parse(R"(["/docs/a","/look/gone"])"), "/backup/in"));
  EXPECT_EQ(start().destFolder, (Share("backup") / "in").string());
  EXPECT_EQ(start().destParam, "backup");
  EXPECT_EQ(start().destCodePage, "UTF-8");
  EXPECT_EQ(start().overwriteMode, CONFLICT_ERROR);
  EXPECT_FALSE(start().srcIsVfs || start().destIsVfs);
  ASSERT_EQ(_srcPathInfos.size(), 2U);
  EXPECT_EQ(_srcPathInfos[0].realPath, (Share("docs") / "a").string());
  EXPECT_EQ(_srcPathInfos[1].sharePath, "/look/gone");
  EXPECT_EQ(_destPathInfo.sharePath, "/backup/in");
}

TEST_F(ValidateTest, SourcesBeforeARefusedOneStayListed) {
  EXPECT_FALSE(Check(Parse(R"(["/docs/a","/docs/no/b","/docs/c"])"), "/backup"));
  EXPECT_EQ(_srcPathInfos.size(), 1U);
}

TEST_F(ValidateTest, RestrictedDestinationRenamesInsteadOfRefusing) {
  WriteFile(Share("docs") / "x", "");
  WriteFile(Share("keep") / "x", "");
  EXPECT_TRUE(Check(Parse(R"(["/docs/x"])"), "/keep", ACTION_COPY, CONFLICT_OVERWRITE));
  EXPECT_EQ(start().overwriteMode, CONFLICT_RENAME);
  EXPECT_TRUE(Check(Parse(R"(["/docs/x"])"), "/keep"));
  EXPECT_EQ(start().overwriteMode, CONFLICT_RENAME);
}

TEST_F(ValidateTest, RemoteSidesAreToldWithTheirProtocols) {
  WriteFile(root() / "mount-nas" / "r", "");
  ASSERT_TRUE(Check(Parse(R"(["/docs/a","sftp://nas/r"])"), "/backup")) << Delivered().code;
  EXPECT_TRUE(start().srcIsVfs);
  EXPECT_FALSE(start().destIsVfs);
  EXPECT_EQ(start().srcProtocol, "sftp");
  // A remote destination opens the mounts for the sources, too.
  ASSERT_TRUE(Check(Parse(R"(["sftp://nas/r"])"), "sftp://far/")) << Delivered().code;
  EXPECT_FALSE(start().srcIsVfs);
  EXPECT_TRUE(start().destIsVfs);
  EXPECT_EQ(start().destProtocol, "sftp");
  EXPECT_EQ(start().destCodePage, "ISO-8859-1");
  EXPECT_EQ(start().srcProtocol, "");
}

TEST_F(ValidateTest, UserThatCannotBeBecome) {
  login = "no-such-user-here";
  EXPECT_FALSE(Check(Parse(R"(["/docs/a"])"), "/backup"));
  EXPECT_EQ(Delivered().code, 401);
  EXPECT_NE(log().find("TAVO.Fennox.CopyMove:161 Failed to set UGID for user=no-such-user-here, "
                       "sid=session, No such file or directory\n"),
            std::string::npos)
      << log();
}

TEST_F(ValidateTest, DestinationThatTheKernelRefuses) {
  WriteFile(Share("docs") / "a", "a");
  std::filesystem::create_directory(Share("backup") / "closed");
  ASSERT_EQ(chmod((Share("backup") / "closed").c_str(), 0555), 0);
  // Root may write everywhere, so the request is nobody's then.
  if (geteuid() == 0) login = "nobody";
  const std::string told = SaidByChild([&] {
    const Outcome outcome =
        Serve("start", Parse(R"({"path":"/docs/a","dest_folder_path":"/backup/closed"})"));
    std::cerr << outcome.code << ' ' << outcome.data[0]["path"].asString() << ' '
              << outcome.data[0]["code"].asInt() << '\n';
  });
  EXPECT_NE(told.find("TAVO.Fennox.CopyMove:244 Failed to access destpath = " +
                      (Share("backup") / "closed").string() + ", reason=407, Permission denied\n"),
            std::string::npos)
      << told;
  EXPECT_NE(told.find("\n1002 /backup/closed 407\n"), std::string::npos) << told;
}

}  // namespace
