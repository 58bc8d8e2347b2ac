#include <dirent.h>
#include <gtest/gtest.h>
#include <json/reader.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>
#include <vector>

#include "host/server/frames.h"
#include "host/server/launcher_link.h"
#include "tasks/store.h"
#include "temporary_state.h"

namespace host {
namespace {

Json::Value Parse(const std::string& text) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) << text;
  return value;
}

class LauncherTest : public testing::Test {
 protected:
  void SetUp() override {
    user_ = UseTemporaryState();
    std::string err;
    ASSERT_TRUE(link_.Start(PLUGIN_PATH, 2, &err)) << err;
  }

  Outcome Run(const char* api, const char* method, const Json::Value& params, Json::Value* out) {
    Call call;
    call.api = api;
    call.method = method;
    call.version = 1;
    call.user = user_;
    call.language = "enu";
    call.params = params;
    std::string text;
    const Outcome outcome = link_.Execute(call, &text);
    if (outcome == Outcome::kAnswered) *out = Parse(text);
    return outcome;
  }

  Json::Value Answer(const char* method, const Json::Value& params = Json::objectValue,
                     const char* api = "Test") {
    Json::Value answer;
    EXPECT_EQ(Run(api, method, params, &answer), Outcome::kAnswered) << method;
    return answer;
  }

  // Waits until the record has ended, and returns it.
  tasks::Record EndOf(const std::string& id) {
    tasks::Record record;
    for (int i = 0; i < 2000; ++i) {
      if (tasks::Read(user_, id, &record) && record.finished) return record;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "the record never ended";
    return record;
  }

  std::string user_;
  LauncherLink link_;
};

Json::Value With(const char* name, const Json::Value& value) {
  Json::Value params(Json::objectValue);
  params[name] = value;
  return params;
}

TEST_F(LauncherTest, EachRequestHasItsOwnProcessAndParametersArriveUnchanged) {
  EXPECT_TRUE(link_.Serves("Test", 1, "echo"));
  EXPECT_FALSE(link_.Serves("Test", 2, "echo"));
  std::set<int> pids;
  for (const Json::Value& value :
       {Json::Value("a\"\n\xC3\xA4"), Json::Value(0.0), Json::Value(Json::arrayValue),
        Json::Value(std::string(3 << 20, 'x')), Json::Value(Json::Int64{1} << 60)}) {
    const Json::Value data = Answer("echo", With("value", value))["data"];
    EXPECT_EQ(data["value"], value);
    EXPECT_EQ(data["value"].type(), value.type());
    EXPECT_EQ(data["user"], user_);
    pids.insert(data["pid"].asInt());
  }
  EXPECT_EQ(pids.size(), 5U);
}

TEST_F(LauncherTest, ItServesNobodyElseWhateverTheFrontSays) {
  for (const char* other : {"nobody", "no-such-user", "", "root\n"}) {
    user_ = other;
    const Json::Value answer = Answer("echo");
    EXPECT_FALSE(answer["success"].asBool()) << other;
    EXPECT_EQ(answer["error"]["code"], 407) << other;
  }
}

TEST_F(LauncherTest, AProcessThatOnlyReadsServesItsUserAgainAndNobodyElse) {
  const auto pid = [this](const char* method) { return Answer(method)["data"]["pid"].asInt(); };
  const int reader = pid("status");
  EXPECT_EQ(pid("status"), reader);
  EXPECT_NE(pid("echo"), reader);
  EXPECT_EQ(pid("status"), reader);
  ASSERT_EQ(::kill(reader, SIGKILL), 0);
  EXPECT_NE(pid("status"), reader) << "a dead one is replaced unnoticed";

  Call call{"Test", "status", 1, user_, "", "enu", Json::objectValue, "{}"};
  for (const auto& [user, method] :
       {std::pair("nobody", "status"), std::pair("", "status"), std::pair(user_.c_str(), "echo")}) {
    core::UniqueFd ours;
    core::UniqueFd theirs;
    ASSERT_TRUE(MakeSocketPair(SOCK_STREAM, &ours, &theirs));
    ASSERT_TRUE(SendDescriptor(link_.control(), theirs.get()));
    theirs.reset();
    std::string text;
    ASSERT_EQ(SendFrame(ours.get(), EncodeCall(call), 60000), FrameStatus::kOk);
    ASSERT_EQ(ReceiveFrame(ours.get(), 1000000, 60000, &text), FrameStatus::kOk);
    Call other = call;
    other.user = user;
    other.method = method;
    ASSERT_EQ(SendFrame(ours.get(), EncodeCall(other), 60000), FrameStatus::kOk);
    EXPECT_EQ(ReceiveFrame(ours.get(), 1000000, 60000, &text), FrameStatus::kEnd) << user << method;
  }
}

TEST_F(LauncherTest, ABurstOfRequestsIsServedWhenNoIdleProcessIsLeft) {
  std::vector<std::thread> threads;
  threads.reserve(30);
  for (int i = 0; i < 30; ++i) {
    threads.emplace_back(
        [this, i] { EXPECT_EQ(Answer("echo", With("value", i))["data"]["value"].asInt(), i); });
  }
  for (auto& thread : threads) thread.join();
}

TEST_F(LauncherTest, FailingHandlersGiveClearErrors) {
  EXPECT_EQ(Answer("throw")["error"]["detail"]["message"], "out of paper");
  EXPECT_EQ(Answer("throw")["error"]["code"], 401);
  EXPECT_EQ(Answer("mistake", With("value", Json::objectValue))["error"]["code"], 400);
  EXPECT_EQ(Answer("nothing")["error"]["code"], 101);
  Json::Value none;
  EXPECT_EQ(Run("Test", "crash", Json::objectValue, &none), Outcome::kDied);
  EXPECT_TRUE(Answer("echo")["success"].asBool());
}

TEST_F(LauncherTest, GarbageOnTheControlSocketIsSurvived) {
  for (const std::string& bytes : {std::string("x"), std::string(), std::string(70000, 'x')}) {
    ASSERT_GE(::send(link_.control(), bytes.data(), bytes.size(), MSG_NOSIGNAL), 0);
  }
  const std::string frames[] = {"", std::string("\0\0\0\x9half", 8), std::string(100, '\xff'),
                                std::string("\0\0\0\2{}", 6)};
  for (const std::string& frame : frames) {
    core::UniqueFd ours;
    core::UniqueFd theirs;
    ASSERT_TRUE(MakeSocketPair(SOCK_STREAM, &ours, &theirs));
    ASSERT_TRUE(SendDescriptor(link_.control(), theirs.get()));
    ASSERT_EQ(::send(ours.get(), frame.data(), frame.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(frame.size()));
  }
  EXPECT_TRUE(Answer("echo")["success"].asBool());
}

TEST_F(LauncherTest, ItEndsWhenTheFrontOnlyCeasesToWrite) {
  ASSERT_EQ(::shutdown(link_.control(), SHUT_WR), 0);
  pollfd poller{link_.control(), 0, 0};
  EXPECT_EQ(::poll(&poller, 1, 60000), 1);
  EXPECT_NE(poller.revents & POLLHUP, 0);
}

TEST_F(LauncherTest, AWorkerThatEndsWithoutFinishingItsRecordCountsAsDead) {
  for (const int status : {0, 3}) {
    const Json::Value worker = Answer("work", With("end", status))["data"];
    const tasks::Record record = EndOf(worker["id"].asString());
    EXPECT_EQ(record.data["errors"][0]["code"], 480);
    EXPECT_EQ(record.data["errors"][0]["path"], "/here");
  }
  // One that throws must not answer the request a second time.
  const Json::Value worker = Answer("work", With("throw", true))["data"];
  EXPECT_EQ(EndOf(worker["id"].asString()).progress, -1.0);
}

TEST_F(LauncherTest, RunningWorkersAreLeftAloneAndOutliveTheLauncher) {
  const Json::Value worker = Answer("work")["data"];
  const pid_t pid = worker["pid"].asInt();
  link_ = LauncherLink();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(::kill(pid, 0), 0);
  // The next launcher knows nothing of it, and still ends its record.
  std::string err;
  ASSERT_TRUE(link_.Start(PLUGIN_PATH, 1, &err)) << err;
  tasks::Record record;
  EXPECT_TRUE(Answer("echo")["success"].asBool());
  ASSERT_TRUE(tasks::Read(user_, worker["id"].asString(), &record));
  EXPECT_FALSE(record.finished);
  ASSERT_EQ(::kill(pid, SIGKILL), 0);
  EXPECT_EQ(EndOf(worker["id"].asString()).progress, -1.0);
}

TEST_F(LauncherTest, ListShowsEntriesAndReplacesWhatIsNotUtf8) {
  const std::string folder = TemporaryFolder() + "/files/list";
  std::filesystem::create_directories(folder + "/sub");
  std::ofstream(folder +
                "/bad\xff"
                "name")
      << "12345";
  std::ofstream(folder + "/.dot") << "";
  std::filesystem::create_symlink("/etc", folder + "/out");
  std::filesystem::create_symlink("sub", folder + "/in");
  Json::Value answer = Answer("list", With("path", "/files/list"), "");
  std::set<std::string> seen;
  for (const Json::Value& entry : answer["data"]["entries"]) {
    seen.insert(entry["type"].asString() + " " + entry["name"].asString() + " " +
                entry["size"].asString() + (entry["hidden"].asBool() ? " hidden" : ""));
  }
  EXPECT_EQ(seen, (std::set<std::string>{"file .dot 0 hidden", "file bad\xEF\xBF\xBDname 5",
                                         "folder sub 0", "link in 0", "link out 0"}));
  EXPECT_TRUE(Answer("list", With("path", "/files/list/in"), "")["success"].asBool());
  Json::Value some = With("path", "/files/list");
  for (const char* name : {"missing", "sub", "in"}) some["names"].append(name);
  const Json::Value found = Answer("list", some, "")["data"]["entries"];
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0]["name"], "sub");
  some["limit"] = 0;
  EXPECT_EQ(Answer("list", some, "")["error"]["code"], 400);
  for (const char* path : {"/files/list/out", "/files/../etc", "/nowhere", "/files/list/.dot",
                           "/files/missing", "relative", "/files//list"}) {
    answer = Answer("list", With("path", path), "");
    EXPECT_FALSE(answer["success"].asBool()) << path;
    EXPECT_EQ(answer["error"]["detail"]["path"], path);
  }
}

TEST(Launcher, APluginThatCannotBeLoadedIsReported) {
  for (const char* file : {"/nonexistent.so", "/bin/true", "/usr/lib/x86_64-linux-gnu/libz.so.1"}) {
    LauncherLink link;
    std::string err;
    EXPECT_FALSE(link.Start(file, 1, &err));
    EXPECT_FALSE(err.empty());
  }
}

}  // namespace
}  // namespace host
