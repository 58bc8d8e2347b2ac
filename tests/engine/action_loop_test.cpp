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

  // Copies files into dst.
  std::int64_t Run(EntryMap& entries, int mode) {
    const std::string folder = At("dst");
    return ActionLoop(Handler(),
                      {"/share/dst", folder, false, mode, ACTION_COPY, share_, codePage_})
        .Run(entries);
  }

  EntryMap One(const std::string& name, int mode = 0) const {
    return {{At(name), Entry("/share/" + name, mode)}};
  }

  const std::string share_ = "share";
  const std::string codePage_ = "UTF-8";
};

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
    EXPECT_EQ(Run(entries, row.requestMode), row.conflicts);
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
    EXPECT_EQ(Run(entries, 0), 3);
    EXPECT_EQ(Read("dst/a"), "old");
    EXPECT_EQ(Read("dst/c"), mode == CONFLICT_OVERWRITE ? "new" : "old");
    EXPECT_EQ(FailureCodes(), std::vector<int>{1003});
  }
}

TEST_F(ActionLoopTest, AStoppedPassDoesNotReportTheEntryInHand) {
  Write("src/f", std::string(100000, 'x'));
  _cancelRequested = 1;
  EntryMap entries = One("src/f");
  EXPECT_EQ(Run(entries, 0), -1);
  EXPECT_TRUE(FailureCodes().empty());
  EXPECT_EQ(_processedNum, 0U);
  EXPECT_TRUE(fs::is_empty(At("dst")));
  EXPECT_EQ(_copyArgs, nullptr);
}

TEST_F(ActionLoopTest, APassThatCannotBeginIsRecordedAsFailedOrLogged) {
  const std::string folder = At("dst");
  Write("src/f", "x");
  EntryMap entries = One("src/f");
  // Without a destination, and for a user who does not exist.
  for (const bool recorded : {true, false}) {
    _task->setProperty("data", recorded ? Json::Value(Json::objectValue) : Json::Value());
    EXPECT_EQ(Handler().WebFMMVCPAction(entries, folder, false, 0, ACTION_COPY, "share", "UTF-8"),
              -1);
    FennoxMVCPHandler& handler = Handler(Json::objectValue, "nobody-of-that-name");
    EXPECT_EQ(ActionLoop(handler, {"/share/dst", folder, false, 0, ACTION_COPY, share_, codePage_})
                  .Run(entries),
              -1);
    EXPECT_EQ(FailureCodes().size(), recorded ? 2U : 0U);
    EXPECT_EQ(Logged(1770), 1) << "where it could be recorded";
    EXPECT_EQ(Logged(1737) + Logged(1767), recorded ? 0 : 2);
  }
  EXPECT_FALSE(fs::exists(At("dst/f")));
  EXPECT_EQ(_copyArgs, nullptr);
}

TEST_F(ActionLoopTest, ProgressIsReportedOnlyWhenBytesCount) {
  Write("src/f", std::string(5000, 'x'));
  EntryMap entries = One("src/f");
  EXPECT_EQ(Run(entries, 0), 0);
  EXPECT_EQ(_processedBytes, 0U);
  _accurateProgress = true;
  EXPECT_EQ(Run(entries, 3), 1);
  EXPECT_EQ(_processedBytes, 5000U);
}

}  // namespace
