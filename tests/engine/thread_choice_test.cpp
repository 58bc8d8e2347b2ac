// When a move goes through the two threads, and what comes back from them.
#include "engine/action_loop.h"
#include "engine_fixture.h"
#include "fake_mounts.h"
#include "webapi/module_state.h"

using namespace Fennox;
namespace fs = std::filesystem;

namespace {

class ThreadChoiceTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    Folder("nas/dst");
    AddMount("plain", "nas", At("nas"));
    AddMount("plain", "nas2", At("nas2"));
    _accurateProgress = false;
    _destPathInfo.sharePath = "plain://nas/dst";
    _destPathInfo.realPath = At("nas/dst");
    _srcPathInfos.resize(1);
    _srcPathInfos[0].sharePath = "plain://nas/";
    _srcPathInfos[0].realPath = At("nas");
  }

  std::int64_t Run(EntryMap& entries, _tag_action_type_ action, const std::string& destSharePath,
                   bool isDirMap = true) {
    const std::string folder = At("nas/dst");
    const std::string share = "plain://nas/";
    const std::string codePage = "UTF-8";
    return ActionLoop(Handler(), {destSharePath, folder, isDirMap, 0, action, share, codePage})
        .Run(entries);
  }
};

// A rename of a folder that has vanished is logged by the threads only.
TEST_F(ThreadChoiceTest, OnlyMovesOnOneServerUseTheThreads) {
  struct Row {
    const char* name;
    _tag_action_type_ action;
    const char* dest;
    std::vector<std::string> sources;
    bool threads;
  };
  const Row rows[] = {
      {"one server", ACTION_MOVE, "plain://nas/dst", {"plain://nas/a", "plain://nas/b"}, true},
      {"a copy", ACTION_COPY, "plain://nas/dst", {"plain://nas/a", "plain://nas/b"}, false},
      {"one entry", ACTION_MOVE, "plain://nas/dst", {"plain://nas/a"}, false},
      {"local destination", ACTION_MOVE, "/share", {"plain://nas/a", "plain://nas/b"}, false},
      {"local source", ACTION_MOVE, "plain://nas/dst", {"plain://nas/a", "/share/b"}, false},
      {"another server",
       ACTION_MOVE,
       "plain://nas/dst",
       {"plain://nas/a", "plain://nas2/b"},
       false},
      {"from elsewhere",
       ACTION_MOVE,
       "plain://nas/dst",
       {"plain://nas2/a", "plain://nas2/b"},
       false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const int before = Logged(1448);
    EntryMap entries;
    for (const std::string& share : row.sources) {
      entries[At("nas/gone-") + share.back()] = Entry(share);
    }
    EXPECT_EQ(Run(entries, row.action, row.dest), 0);
    EXPECT_EQ(Logged(1448) - before, row.threads ? static_cast<int>(row.sources.size()) : 0);
  }
}

TEST_F(ThreadChoiceTest, WhatCannotBeRenamedIsCopiedAndReportedOnce) {
  Write("nas/a/new", "a");
  Write("nas/b/new", "b");
  Write("nas/dst/b/old", "kept");
  EntryMap entries{{At("nas/a"), Entry("plain://nas/a")},
                   {At("nas/b"), Entry("plain://nas/b")},
                   {At("nas/c"), Entry("plain://nas/c", 0, 407)}};
  // Both the threads and the loop after them find b taken.
  EXPECT_EQ(Run(entries, ACTION_MOVE, "plain://nas/dst"), 2);
  EXPECT_EQ(Read("nas/dst/a/new"), "a");
  EXPECT_EQ(Read("nas/dst/b/new"), "b");
  EXPECT_EQ(Read("nas/dst/b/old"), "kept");
  EXPECT_FALSE(fs::exists(At("nas/a")));
  EXPECT_FALSE(fs::exists(At("nas/b")));
  EXPECT_EQ(FailureCodes(), std::vector<int>{407});
  EXPECT_EQ(_processedNum, 3U);
}

TEST_F(ThreadChoiceTest, AStopInTheThreadsEndsThePass) {
  for (const char* name : {"a", "b", "c", "d"}) Write(std::string("nas/") + name, "x");
  EntryMap entries;
  for (const char* name : {"a", "b", "c", "d"}) {
    entries[At(std::string("nas/") + name)] = Entry(std::string("plain://nas/") + name);
  }
  _cancelRequested = 1;
  EXPECT_EQ(Run(entries, ACTION_MOVE, "plain://nas/dst", false), -1);
  EXPECT_EQ(_processedNum, 2U);  // each thread had done one when it saw the stop
  EXPECT_TRUE(fs::exists(At("nas/b")));
  EXPECT_TRUE(fs::exists(At("nas/d")));
}

}  // namespace
