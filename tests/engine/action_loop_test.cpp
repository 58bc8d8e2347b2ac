#include "engine/action_loop.h"

#include "engine_fixture.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

using namespace Fennox;
namespace fs = std::filesystem;

namespace {

class ActionLoopTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    Folder("src");
    Folder("dst");
    _accurateProgress = false;
  }

  std::int64_t Run(EntryMap& entries, bool isDirMap, int mode, _tag_action_type_ action,
                   const std::string& destFolder = "dst") {
    const std::string folder = At(destFolder);
    const std::string shareOfDest = "/share/" + destFolder;
    return ActionLoop(Handler(), {shareOfDest, folder, isDirMap, mode, action, share_, codePage_})
        .Run(entries);
  }

  EntryMap One(const std::string& name, int mode = 0) const {
    return {{At(name), Entry("/share/" + name, mode)}};
  }

  const std::string share_ = "share";
  const std::string codePage_ = "UTF-8";
};

TEST_F(ActionLoopTest, CopiesATreeAndLeavesTheSource) {
  Write("src/tree/a", "1");
  Write("src/tree/deep/b", "22");
  EntryMap entries = One("src/tree");
  EXPECT_EQ(Run(entries, true, 0, ACTION_COPY), 0);
  EXPECT_EQ(Read("dst/tree/deep/b"), "22");
  EXPECT_EQ(Read("src/tree/a"), "1");
  EXPECT_EQ(_processedNum, 1U);
  EXPECT_EQ(_processingPath, "/share/src/tree");
  EXPECT_EQ(_copyArgs, nullptr);
}

TEST_F(ActionLoopTest, MovesFilesWithinAndAcrossVolumes) {
  Write("src/f", "text");
  EntryMap entries = One("src/f");
  EXPECT_EQ(Run(entries, false, 0, ACTION_MOVE), 0);
  EXPECT_EQ(Read("dst/f"), "text");
  EXPECT_FALSE(fs::exists(At("src/f")));

  const std::string other = OtherVolume();
  if (other.empty()) GTEST_SKIP() << "needs a second file system";
  const std::string shareOfDest = "/share/other";
  EntryMap again = One("dst/f");
  EXPECT_EQ(ActionLoop(Handler(), {shareOfDest, other, false, 0, ACTION_MOVE, share_, codePage_})
                .Run(again),
            0);
  EXPECT_TRUE(fs::exists(other + "/f"));
  EXPECT_FALSE(fs::exists(At("dst/f")));
}

TEST_F(ActionLoopTest, ConflictModesDecideWhatStaysAndWhatCounts) {
  struct Row {
    int requestMode, entryMode;
    const char* kept;
    int conflicts, error;
    bool extraFile;
  };
  const Row rows[] = {
      {0, 0, "old", 1, 1003, false}, {1, 0, "old", 1, 0, false}, {1, 1, "old", 1, 0, false},
      {3, 0, "new", 1, 0, false},    {3, 3, "new", 1, 0, false}, {2, 2, "old", 0, 0, true},
      {0, 3, "new", 1, 0, false},    {1, 2, "old", 0, 0, true},  {3, 1, "old", 1, 0, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("request " + std::to_string(row.requestMode) + " entry " +
                 std::to_string(row.entryMode));
    fs::remove_all(At("dst"));
    Write("src/f", "new");
    Write("dst/f", "old");
    _task->setProperty("data", Json::Value(Json::objectValue));
    EntryMap entries = One("src/f", row.entryMode);
    EXPECT_EQ(Run(entries, false, row.requestMode, ACTION_COPY), row.conflicts);
    EXPECT_EQ(Read("dst/f"), row.kept);
    EXPECT_EQ(FailureCodes(), row.error == 0 ? std::vector<int>() : std::vector<int>{row.error});
    const auto files = std::distance(fs::directory_iterator(At("dst")), fs::directory_iterator());
    EXPECT_EQ(files, row.extraFile ? 2 : 1);
  }
}

TEST_F(ActionLoopTest, AnEntryWithoutAModeRunsUnderTheLastOne) {
  for (const int mode : {CONFLICT_OVERWRITE, CONFLICT_SKIP}) {
    SCOPED_TRACE(mode);
    for (const char* name : {"a", "b", "c"}) {
      Write(std::string("src/") + name, "new");
      Write(std::string("dst/") + name, "old");
    }
    _task->setProperty("data", Json::Value(Json::objectValue));
    EntryMap entries{{At("src/a"), Entry("/share/a")},
                     {At("src/b"), Entry("/share/b", mode)},
                     {At("src/c"), Entry("/share/c")}};
    EXPECT_EQ(Run(entries, false, 0, ACTION_COPY), 3);
    EXPECT_EQ(Read("dst/a"), "old");
    EXPECT_EQ(Read("dst/c"), mode == CONFLICT_OVERWRITE ? "new" : "old");
    EXPECT_EQ(FailureCodes(), std::vector<int>{1003});
  }
}

TEST_F(ActionLoopTest, AFolderIsNotCopiedIntoItselfAndTheOthersGoOn) {
  Write("src/tree/inner/x", "1");
  Write("src/zz/y", "2");
  EntryMap entries{{At("src/tree"), Entry("/share/tree")}, {At("src/zz"), Entry("/share/zz")}};
  EXPECT_EQ(Run(entries, true, 0, ACTION_COPY, "src/tree/inner"), 0);
  EXPECT_EQ(FailureCodes(), std::vector<int>{1003});
  EXPECT_FALSE(fs::exists(At("src/tree/inner/tree")));
  EXPECT_EQ(Read("src/tree/inner/zz/y"), "2");
  EXPECT_EQ(_processedNum, 2U);

  Folder("src/treetop");
  EntryMap neighbour = One("src/tree");
  EXPECT_EQ(Run(neighbour, true, 0, ACTION_COPY, "src/treetop"), 0);
  EXPECT_EQ(Read("src/treetop/tree/inner/x"), "1");
}

TEST_F(ActionLoopTest, AFailingEntryDoesNotStopTheOthers) {
  Write("src/b", "b");
  EntryMap entries{{At("src/a-missing"), Entry("/share/a")},
                   {At("src/b"), Entry("/share/b")},
                   {At("src/c"), Entry("/share/c", 0, 460)}};
  EXPECT_EQ(Run(entries, false, 0, ACTION_COPY), 0);
  EXPECT_EQ(Read("dst/b"), "b");
  EXPECT_EQ(FailureCodes(), (std::vector<int>{422, 460}));
  EXPECT_EQ(_processedNum, 3U);
}

TEST_F(ActionLoopTest, AStoppedPassDoesNotReportTheEntryInHand) {
  Write("src/f", std::string(100000, 'x'));
  _cancelRequested = 1;
  EntryMap entries = One("src/f");
  EXPECT_EQ(Run(entries, false, 0, ACTION_COPY), -1);
  EXPECT_TRUE(FailureCodes().empty());
  EXPECT_EQ(_processedNum, 0U);
  EXPECT_TRUE(fs::is_empty(At("dst")));
  EXPECT_EQ(_copyArgs, nullptr);
}

TEST_F(ActionLoopTest, APassWithoutADestinationIsRecordedAsFailed) {
  Write("src/f", "x");
  EntryMap entries = One("src/f");
  EXPECT_EQ(Handler().WebFMMVCPAction(entries, At("dst"), false, 0, ACTION_COPY, "share", "UTF-8"),
            -1);
  EXPECT_EQ(FailureCodes(), std::vector<int>{401});
  EXPECT_FALSE(fs::exists(At("dst/f")));
}

TEST_F(ActionLoopTest, AnUnknownUserStopsThePass) {
  const std::string folder = At("dst");
  const std::string shareOfDest = "/share/dst";
  Write("src/f", "x");
  EntryMap entries = One("src/f");
  FennoxMVCPHandler& handler = Handler(Json::objectValue, "nobody-of-that-name");
  EXPECT_EQ(ActionLoop(handler, {shareOfDest, folder, false, 0, ACTION_COPY, share_, codePage_})
                .Run(entries),
            -1);
  EXPECT_EQ(FailureCodes().size(), 1U);
  EXPECT_EQ(Logged(1770), 1);
  EXPECT_EQ(_copyArgs, nullptr);
}

TEST_F(ActionLoopTest, APassThatCannotRecordItsFailureLogsThat) {
  ASSERT_TRUE(_task->setProperty("data", Json::Value()));
  const std::string folder = At("dst");
  EntryMap entries = One("src/f");
  EXPECT_EQ(Handler().WebFMMVCPAction(entries, folder, false, 0, ACTION_COPY, "share", "UTF-8"),
            -1);
  EXPECT_EQ(Logged(1737), 1);
  FennoxMVCPHandler& handler = Handler(Json::objectValue, "nobody-of-that-name");
  EXPECT_EQ(ActionLoop(handler, {"/share/dst", folder, false, 0, ACTION_COPY, share_, codePage_})
                .Run(entries),
            -1);
  EXPECT_EQ(Logged(1767), 1);
  EXPECT_EQ(Logged(1770), 0);
}

TEST_F(ActionLoopTest, AnEmptyMapIsAnEmptyPass) {
  EntryMap entries;
  EXPECT_EQ(Run(entries, true, 3, ACTION_MOVE), 0);
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(ActionLoopTest, ProgressIsReportedOnlyWhenBytesCount) {
  Write("src/f", std::string(5000, 'x'));
  EntryMap entries = One("src/f");
  EXPECT_EQ(Run(entries, false, 0, ACTION_COPY), 0);
  EXPECT_EQ(_processedBytes, 0U);
  _accurateProgress = true;
  EXPECT_EQ(Run(entries, false, 3, ACTION_COPY), 1);
  EXPECT_EQ(_processedBytes, 5000U);
}

}  // namespace
