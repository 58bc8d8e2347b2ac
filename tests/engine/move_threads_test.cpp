#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/error.h"
#include "engine/move_rename.h"
#include "engine_fixture.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

using namespace Fennox;
namespace fs = std::filesystem;

namespace {

constexpr int kReplace = 1;
constexpr int kKeep = 0;
constexpr int kReport = -1;

class MoveThreadsTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    Folder("src");
    Folder("dst");
  }

  void Run(int policy, bool isDirMap, const std::string& destFolder = "") {
    MoveThreadMain(records_, entries_, destFolder.empty() ? At("dst") : destFolder, "UTF-8",
                   "share", policy, isDirMap);
  }

  // The outcome of a single entry, which is the second thread's.
  ENTRY_STAT MoveOne(const std::string& source, int mode, int policy, bool isDirMap,
                     const std::string& destFolder = "") {
    entries_ = {{source, Entry("/s", mode)}};
    records_[0] = records_[1] = MOVE_THREAD_INFO();
    Run(policy, isDirMap, destFolder);
    return records_[1].entries.at(source);
  }

  EntryMap entries_;
  MOVE_THREAD_INFO records_[2];
};

TEST_F(MoveThreadsTest, TheSecondThreadGetsTheLargerHalfAndEachEntryCountsOnce) {
  for (int i = 100; i < 501; ++i) {
    Write("src/" + std::to_string(i), "four");
    entries_[At("src/" + std::to_string(i))] = Entry("/s");
  }
  Run(kReport, false);
  EXPECT_EQ(records_[0].entries.size(), 200U);
  EXPECT_EQ(records_[0].entries.count(At("src/299")), 1U);
  EXPECT_EQ(records_[1].entries.size(), 201U);
  EXPECT_EQ(records_[0].index, 0);
  EXPECT_EQ(records_[1].index, 1);
  EXPECT_EQ(_processedBytes, 4U * 401U);
  EXPECT_TRUE(fs::is_empty(At("src")));
  EXPECT_EQ(Read("dst/100") + Read("dst/500"), "fourfour");
  for (const MOVE_THREAD_INFO& record : records_) {
    for (const auto& [path, entry] : record.entries) EXPECT_EQ(entry.result, 0) << path;
  }
}

TEST_F(MoveThreadsTest, AFileConflictFollowsTheEntryThenTheRequest) {
  struct Row {
    int mode, policy, result, error;
    const char* kept;
  };
  const Row rows[] = {
      {1, kReplace, 0, 0, "old"}, {1, kReport, 0, 0, "old"},     {3, kKeep, 0, 0, "new"},
      {0, kKeep, 0, 0, "old"},    {0, kReport, -1, 1003, "old"}, {0, kReplace, 0, 0, "new"},
      {2, kReport, 0, 0, "both"},  // under a free name
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("mode " + std::to_string(row.mode) + " policy " + std::to_string(row.policy));
    Write("src/f", "new");
    Write("dst/f", "old");
    const ENTRY_STAT entry = MoveOne(At("src/f"), row.mode, row.policy, false);
    EXPECT_EQ(entry.result, row.result);
    EXPECT_EQ(entry.error, row.error);
    const std::string kept = row.kept;
    EXPECT_EQ(entry.destExists, kept != "both");
    EXPECT_EQ(records_[1].existCount, kept == "both" ? 0U : 1U);
    EXPECT_EQ(Read("dst/f"), kept == "new" ? "new" : "old");
    EXPECT_EQ(fs::exists(At("src/f")), kept == "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(At("dst")), {}), kept == "both" ? 2 : 1);
  }
}

TEST_F(MoveThreadsTest, FailedFileRenames) {
  EXPECT_EQ(MoveOne(At("src/gone"), 0, kReport, false).error, 422);
  EXPECT_EQ(records_[1].entries.at(At("src/gone")).result, -1);

  Write("src/file", "x");
  Folder("dst/file");
  EXPECT_EQ(MoveOne(At("src/file"), 0, kReplace, false).error, 1004);
  EXPECT_EQ(Read("src/file"), "x");
}

TEST_F(MoveThreadsTest, FailedFolderRenames) {
  Write("src/full/x", "new");
  Write("dst/full/y", "old");
  EXPECT_EQ(MoveOne(At("src/full"), 0, kReport, true).result, -2);
  EXPECT_EQ(records_[1].entries.at(At("src/full")).error, 0);
  EXPECT_TRUE(fs::exists(At("src/full/x")));

  const ENTRY_STAT missing = MoveOne(At("src/gone"), 0, kReport, true);
  EXPECT_EQ(missing.result, -1);
  EXPECT_EQ(missing.error, 422);
  EXPECT_EQ(Logged(1448), 1);
}

TEST_F(MoveThreadsTest, EveryReasonOfAFailedRenameHasItsAnswer) {
  struct Row {
    MoveResult (*move)(const std::string&, const std::string&);
    int reason, core, line, logged;  // core 0: left to the copy
  };
  const Row rows[] = {
      {RenameFolder, EBUSY, 0, 0, 0},           {RenameFolder, EEXIST, 0, 0, 0},
      {RenameFolder, EXDEV, 0, 0, 0},           {RenameFolder, ENOTEMPTY, 0, 0, 0},
      {RenameFolder, EROFS, 0x300, 1443, 1444}, {RenameFolder, EACCES, 0x300, 1443, 1444},
      {RenameFolder, EPERM, 0x300, 1443, 1444}, {RenameFolder, ENOENT, 0x700, 1447, 1448},
      {RenameFolder, EIO, 0x8000, 1451, 1452},  {RenameFile, EXDEV, 0, 0, 0},
      {RenameFile, EISDIR, 0xA200, 1381, 0},    {RenameFile, EROFS, 0x300, 1385, 0},
      {RenameFile, EACCES, 0x300, 1385, 0},     {RenameFile, EPERM, 0x300, 1385, 0},
      {RenameFile, ENOENT, 0x700, 1388, 0},     {RenameFile, ENAMETOOLONG, 0xC300, 1391, 0},
      {RenameFile, ENOSPC, 0x2900, 1394, 0},    {RenameFile, EBUSY, 0x8000, 1400, 1399},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.reason) + " " + std::to_string(row.line));
    renameFailure = row.reason;
    const std::size_t before = LogLines().size();
    VLIBCErrSetEx(0, "test", 0);
    EXPECT_EQ(row.move("/a", "/b"), row.core == 0 ? MOVE_MUST_COPY : MOVE_FAILED);
    EXPECT_EQ(errno, row.reason);
    EXPECT_EQ(VLIBCErrGet(), row.core);
    EXPECT_EQ(core::LastErrorPlace().line, row.line);
    ASSERT_EQ(LogLines().size() - before, row.logged == 0 ? 0U : 1U);
    if (row.logged != 0) {
      EXPECT_TRUE(LogLines().back().starts_with(
          "TAVO.Fennox.CopyMove:" + std::to_string(row.logged) + " rename "));
    }
  }
}

TEST_F(MoveThreadsTest, AnEntryNeverMovesIntoItself) {
  Folder("src/d/inner");
  for (const bool isDirMap : {true, false}) {
    const ENTRY_STAT entry = MoveOne(At("src/d"), 3, kReplace, isDirMap, At("src/d/inner"));
    EXPECT_EQ(entry.result, -1);
    EXPECT_EQ(entry.error, 1003);
  }
  EXPECT_TRUE(fs::exists(At("src/d/inner")));
}

TEST_F(MoveThreadsTest, AnEntryThatFailedBeforeKeepsItsError) {
  Write("src/f", "new");
  Write("dst/f", "old");
  entries_[At("src/f")] = Entry("/s", 3, 407);
  Run(kReplace, true);
  const ENTRY_STAT& entry = records_[1].entries.at(At("src/f"));
  EXPECT_EQ(entry.result, -1);
  EXPECT_EQ(entry.error, 407);
  EXPECT_TRUE(entry.destExists);
  EXPECT_EQ(Read("dst/f"), "old");
}

TEST_F(MoveThreadsTest, AStopLeavesTheRestUnprocessed) {
  for (const char* name : {"a", "b", "c", "d", "e"}) {
    Write(std::string("src/") + name, "x");
    entries_[At(std::string("src/") + name)] = Entry("/s");
  }
  _cancelRequested = 1;
  Run(kReport, false);
  EXPECT_EQ(records_[0].entries.at(At("src/a")).result, 0);
  EXPECT_EQ(records_[0].entries.at(At("src/b")).result, -3);
  EXPECT_EQ(records_[1].entries.at(At("src/c")).result, 0);
  EXPECT_EQ(records_[1].entries.at(At("src/e")).result, -3);
  EXPECT_TRUE(fs::exists(At("src/b")));
}

#ifndef __SANITIZE_THREAD__
// What a child saw in which the second thread had no room.
enum Lonely { kWaitedFor = 0, kBothRan = 1, kNotLimited = 2, kFirstUndone = 3, kSecondTouched = 4 };

TEST_F(MoveThreadsTest, AThreadThatRunsIsWaitedForWhenTheOtherCannotStart) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a user id without processes";
  fs::permissions(At("src"), fs::perms::all);
  fs::permissions(At("dst"), fs::perms::all);
  _lastWriteTime = time(nullptr) + 1;  // the record is out of the child's reach
  int outcome = kBothRan;
  // On a busy machine the first thread may have ended before the second starts.
  for (int attempt = 0; attempt < 50 && outcome == kBothRan; ++attempt) {
    for (int i = 0; i < 100; ++i) {
      Write("src/" + std::to_string(i), "x");
      entries_[At("src/" + std::to_string(i))] = Entry("/s");
    }
    const pid_t child = fork();
    if (child == 0) {
      const rlimit limit{2, 2};
      const uid_t lonely = 3000000U + static_cast<uid_t>(getpid());
      if (setrlimit(RLIMIT_NPROC, &limit) != 0 || setuid(lonely) != 0) _exit(kNotLimited);
      Run(kReplace, false);
      for (const auto& [path, entry] : records_[0].entries) {
        if (entry.result != MOVE_DONE) _exit(kFirstUndone);
      }
      if (Logged(1639) == 0) _exit(kBothRan);
      for (const auto& [path, entry] : records_[1].entries) {
        if (entry.result != MOVE_NOT_PROCESSED) _exit(kSecondTouched);
      }
      _exit(kWaitedFor);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    outcome = WEXITSTATUS(status);
  }
  EXPECT_EQ(outcome, kWaitedFor);
}
#endif

}  // namespace
