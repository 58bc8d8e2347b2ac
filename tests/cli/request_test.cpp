// What goes to the server and how its answers are read.
#include <gtest/gtest.h>
#include <support/errors.h>

#include <set>
#include <string>
#include <vector>

#include "host/cli/client.h"
#include "host/cli/commands.h"
#include "host/cli/format.h"
#include "host/cli/listing.h"
#include "host/cli/options.h"
#include "host/cli/server_address.h"
#include "host/cli/task_status.h"
#include "host/cli/words.h"

namespace cli {
namespace {

std::optional<int> Parse(std::vector<const char*> arguments, Options* options) {
  arguments.insert(arguments.begin(), "fennox");
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  const auto result = ParseOptions(static_cast<int>(arguments.size()), arguments.data(), options);
  testing::internal::GetCapturedStderr();
  testing::internal::GetCapturedStdout();
  return result;
}

Json::Value Params(const std::vector<const char*>& arguments) {
  Options options;
  EXPECT_EQ(Parse(arguments, &options), std::nullopt);
  Json::Value params;
  std::string error;
  EXPECT_TRUE(StartParams(options, &params, &error)) << error;
  return params;
}

TEST(Options, TheLastPathIsTheDestination) {
  Options options;
  ASSERT_EQ(Parse({"move", "--no-accurate-progress", "/a/x", "/a/y", "/b"}, &options),
            std::nullopt);
  EXPECT_EQ(options.command, Command::kMove);
  EXPECT_EQ(options.sources, (std::vector<std::string>{"/a/x", "/a/y"}));
  EXPECT_EQ(options.target, "/b");
  EXPECT_FALSE(options.accurate_progress);
}

TEST(Options, NamesThatBeginWithADashFollowTwoDashes) {
  Options options;
  ASSERT_EQ(Parse({"copy", "--", "-x", "/b"}, &options), std::nullopt);
  EXPECT_EQ(options.sources, std::vector<std::string>{"-x"});
}

TEST(Options, UsageErrorsAreRefused) {
  const std::vector<std::vector<const char*>> wrong = {
      {},
      {"copy"},
      {"copy", "/a"},
      {"copy", "--skip", "--overwrite", "/a", "/b"},
      {"copy", "--rename", "--overwrite", "/a", "/b"},
      {"copy", "--skip", "--rename", "/a", "/b"},
      {"status"},
      {"task"},
      {"login", "secret"},
      {"frobnicate"},
      {"copy", "--frobnicate", "/a", "/b"},
  };
  for (const auto& arguments : wrong) {
    Options options;
    EXPECT_EQ(Parse(arguments, &options), kExitRefused)
        << (arguments.empty() ? "no command" : arguments.back());
  }
  Options options;
  EXPECT_EQ(Parse({"--help"}, &options), kExitDone);
  EXPECT_EQ(Parse({"copy", "--help"}, &options), kExitDone);
}

TEST(StartParams, PathsAreListsSoThatCommasStayInNames) {
  const Json::Value params = Params({"copy", "/a/x, y", "/b/c,d"});
  ASSERT_TRUE(params["path"].isArray());
  EXPECT_EQ(params["path"][0].asString(), "/a/x, y");
  ASSERT_TRUE(params["dest_folder_path"].isArray());
  EXPECT_EQ(params["dest_folder_path"][0].asString(), "/b/c,d");
  EXPECT_EQ(params["remove_src"], Json::Value(false));
  EXPECT_EQ(params["accurate_progress"], Json::Value(true));
  EXPECT_FALSE(params.isMember("overwrite"));
  EXPECT_FALSE(params.isMember("rename"));
}

TEST(StartParams, ConflictFlagsBecomeTheServersPair) {
  EXPECT_EQ(Params({"copy", "--overwrite", "/a", "/b"})["overwrite"], Json::Value(true));
  EXPECT_EQ(Params({"copy", "--skip", "/a", "/b"})["overwrite"], Json::Value(false));
  const Json::Value rename = Params({"move", "--rename", "/a", "/b"});
  EXPECT_EQ(rename["rename"], Json::Value(true));
  EXPECT_EQ(rename["overwrite"], Json::Value(false)) << "else a taken name is refused at once";
  EXPECT_EQ(rename["remove_src"], Json::Value(true));
}

TEST(StartParams, LastSlashesGoExceptWhereTheyNameAMount) {
  const Json::Value params = Params({"copy", "/a/x//", "sftp://nas/", "/b/"});
  EXPECT_EQ(params["path"][0].asString(), "/a/x");
  EXPECT_EQ(params["path"][1].asString(), "sftp://nas/");
  EXPECT_EQ(params["dest_folder_path"][0].asString(), "/b");
}

TEST(StartParams, PathsThatCannotBeSentAreRefused) {
  for (const std::string path : {"", "/a/\xff"}) {
    Options options;
    options.command = Command::kCopy;
    options.sources = {path};
    options.target = "/b";
    Json::Value params;
    std::string error;
    EXPECT_FALSE(StartParams(options, &params, &error));
    EXPECT_EQ(error, Printable(error));
  }
}

TEST(ServerUrl, TakesHostsPortsAndBases) {
  ServerAddress address;
  std::string error;
  ASSERT_TRUE(ParseServerUrl("http://127.0.0.1:5050", &address, &error));
  EXPECT_EQ(address.origin, "http://127.0.0.1:5050");
  EXPECT_EQ(address.base, "");
  ASSERT_TRUE(ParseServerUrl("https://nas.example/files/", &address, &error));
  EXPECT_EQ(address.origin, "https://nas.example");
  EXPECT_EQ(address.base, "/files");
  for (const char* bad : {"", "127.0.0.1:5050", "ftp://x", "http://", "http:///x", "http://:80",
                          "http://user:pass@x", "http://x/?token=1", "http://x\r\nA: b"}) {
    EXPECT_FALSE(ParseServerUrl(bad, &address, &error)) << bad;
  }
}

TEST(Envelope, TellsSuccessFromEveryKindOfRefusal) {
  Json::Value data;
  CallError error;
  EXPECT_TRUE(ReadEnvelope(200, R"({"success":true,"data":{"taskid":"x"}})", &data, &error));
  EXPECT_EQ(data["taskid"].asString(), "x");
  EXPECT_TRUE(ReadEnvelope(200, R"({"success":true})", &data, &error));
  EXPECT_TRUE(data.isNull());
  EXPECT_FALSE(ReadEnvelope(200, R"({"success":false,"error":{"code":400}})", &data, &error));
  EXPECT_EQ(error.kind, CallError::Kind::kApi);
  EXPECT_EQ(error.code, 400);
  EXPECT_FALSE(ReadEnvelope(401, "", &data, &error));
  EXPECT_EQ(error.kind, CallError::Kind::kHttp);
  EXPECT_FALSE(error.Passing());
  EXPECT_FALSE(ReadEnvelope(429, "{}", &data, &error));
  EXPECT_TRUE(error.Passing());
}

TEST(Envelope, AnswersOfOtherServersAreNoAnswers) {
  const std::string deep(5000, '[');
  for (const std::string& body :
       {std::string("<html>"), std::string("[]"), std::string(""), std::string(R"({"success":1})"),
        std::string(R"({"success":false,"error":{"code":"x"}})"), deep}) {
    Json::Value data;
    CallError error;
    EXPECT_FALSE(ReadEnvelope(200, body, &data, &error));
    EXPECT_EQ(error.kind, CallError::Kind::kAnswer) << body.substr(0, 40);
  }
}

TEST(ErrorLines, ARefusedStartNamesTheFileAndTheReason) {
  CallError error;
  error.kind = CallError::Kind::kApi;
  error.code = WEBFM_COPY_FAILED;
  error.detail[0]["code"] = WEBFM_CONFLICT;
  error.detail[0]["path"] = "/a/x\n";
  const auto lines = ErrorLines(error);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_NE(lines[0].find("(1000)"), std::string::npos) << lines[0];
  EXPECT_NE(lines[1].find("/a/x\\n: "), std::string::npos) << lines[1];
  EXPECT_NE(lines[1].find("(1003)"), std::string::npos) << lines[1];
}

TEST(Words, EveryCodeHasAReasonOfItsOwn) {
  const std::string unknown = support::ErrorText(-1);
  std::set<std::string> reasons;
  std::set<std::string> names{support::ErrorName(-1)};
  for (const int code : support::ErrorCodes()) {
    const std::string reason = Reason(code);
    EXPECT_TRUE(reasons.insert(reason.substr(0, reason.rfind('('))).second) << reason;
    EXPECT_TRUE(names.insert(support::ErrorName(code)).second) << reason;
    EXPECT_EQ(WfmParseErrorToKVXString(code, 0), std::string("error:") + support::ErrorName(code));
    EXPECT_EQ(reason.find(unknown.substr(0, unknown.size() - 1)), std::string::npos) << reason;
    EXPECT_NE(reason.find("(" + std::to_string(code) + ")"), std::string::npos) << reason;
  }
  EXPECT_GT(reasons.size(), 30U);
}

TEST(Status, ReadsCountersOfBothKinds) {
  Json::Value answer;
  answer["finished"] = false;
  answer["progress"] = 0.5;
  answer["total"] = 10.0;
  answer["processed_num"] = 5.0;
  answer["transfer_rate"] = "N/A";
  TaskStatus status = ReadStatus(answer);
  EXPECT_FALSE(status.in_bytes);
  EXPECT_EQ(status.processed, 5);
  EXPECT_LT(status.rate, 0);
  answer.removeMember("processed_num");
  answer["processed_size"] = 7.0;
  answer["transfer_rate"] = 0;
  status = ReadStatus(answer);
  EXPECT_TRUE(status.in_bytes);
  EXPECT_EQ(status.processed, 7);
  EXPECT_EQ(status.rate, 0);
}

TEST(Status, MembersOfAWrongKindAreNotTrusted) {
  Json::Value answer;
  for (const char* name : {"finished", "progress", "status", "total", "processed_size", "errors",
                           "skipstatus", "processing_path"}) {
    answer[name][0] = "x";
  }
  const TaskStatus status = ReadStatus(answer);
  EXPECT_FALSE(status.finished);
  EXPECT_FALSE(status.Measured());
  EXPECT_TRUE(status.failures.empty());
  EXPECT_FALSE(ReadStatus(Json::Value("x")).finished);
}

TEST(Tables, ShowOneLineForEachEntry) {
  Json::Value folder;
  Json::Value& entries = folder["entries"];
  entries[0]["name"] = "z\nb";
  entries[0]["type"] = "file";
  entries[0]["size"] = 1500;
  entries[0]["mtime"] = 1700000000;
  entries[1]["name"] = "place";
  entries[1]["type"] = "folder";
  entries[2] = "senseless";
  const std::string table = FolderTable(folder);
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 3);
  EXPECT_LT(table.find("z\\nb"), table.find("place/")) << "the order is the server's";
  EXPECT_NE(table.find("1.5 kB"), std::string::npos);
  EXPECT_NE(table.find("z\\nb"), std::string::npos);

  Json::Value tasks(Json::arrayValue);
  tasks[0]["id"] = "Fennox_1";
  tasks[0]["finished"] = true;
  tasks[0]["progress"] = 1;
  tasks[0]["data"]["params"]["path"][0] = "/a/x";
  tasks[0]["data"]["params"]["dest_folder_path"] = "/b";
  tasks[0]["data"]["errors"][0]["code"] = 401;
  EXPECT_NE(TaskTable(tasks).find("done, 1 failed  copy /a/x to /b"), std::string::npos)
      << TaskTable(tasks);
}

}  // namespace
}  // namespace cli
