// What follows an entry.
#include <sys/xattr.h>

#include <memory>

#include "module_fixture.h"
#include "results/search_update.h"
#include "support/search_index.h"
#include "support/transfer_log.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

struct Entry {
  std::string name = "a.txt";
  _tag_action_type_ action = ACTION_COPY;
  int overwriteMode = CONFLICT_ERROR;
  bool isFolder = false;
  int error = 0;
  bool log = false;
  bool inScope = false;
  bool destExisted = false;
  std::string codePage = "UTF-8";
  std::string shownAs = {};  // processing path; the share path when empty
};

class PostProcessTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    _accurateProgress = false;
    NewTask(Parse("{}"));
  }
  // Post-processes /docs/NAME that went to /backup.
  void Post(const Entry& e, FileSearch::WfmSearchDBTask* index = nullptr) {
    const std::string source = Share("docs") / e.name;
    const std::string target = Share("backup") / e.name;
    EntryMap entries;
    entries[source] = {"/docs/" + e.name, e.codePage,         0,
                       e.overwriteMode,   MOVE_NOT_PROCESSED, false};
    _processingPath = e.shownAs.empty() ? "/docs/" + e.name : e.shownAs;
    Handler("start").postMVCP(entries.begin(), e.action, e.overwriteMode, e.isFolder,
                              static_cast<WEBFMERR>(e.error), source.c_str(),
                              _processingPath.c_str(), "/backup", "backup", target.c_str(), e.log,
                              e.inScope, e.destExisted, index);
  }
  static Json::Value LastLine() { return support::ReadTransferLog(CurrentUser(), 1)[0]; }
};

TEST_F(PostProcessTest, TransferLogShowsNamesInUtf8) {
  WriteFile(Share("backup") / "na\xefve", "1");
  Post({.name = "na\xefve", .log = true, .codePage = "ISO-8859-1", .shownAs = "ftp://nas/x"});
  EXPECT_EQ(LastLine()["text"], "ftp://nas/x -> /backup/na\u00efve");
}

TEST_F(PostProcessTest, TransferLogOfALostFileSaysSoAndGoesOn) {
  testing::internal::CaptureStderr();
  Post({.log = true});
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "TAVO.Fennox.CopyMove:1667 Failed to stat file (" +
                (Share("backup") / "a.txt").string() + "), No such file or directory.\n"),
            std::string::npos);
  EXPECT_EQ(LastLine()["size"], 0);
}

TEST_F(PostProcessTest, ReceivedFilesAreLoggedWithTheirSender) {
  WriteFile(Share("docs") / "a.txt", "1");
  WriteFile(Share("backup") / "a.txt", "1");
  Post({.log = true, .shownAs = "sharing://x/a.txt"});
  EXPECT_EQ(LastLine()["text"], "sharing://x/a.txt -> /backup/a.txt");
  const std::string value = R"({"name":"carol","path":"/p"})";
  if (setxattr((Share("docs") / "a.txt").c_str(), "user.tavo.sharing", value.data(), value.size(),
               0) != 0) {
    GTEST_SKIP() << "no extended attributes in the temporary folder";
  }
  Post({.log = true, .shownAs = "sharing://x/a.txt"});
  const std::string text = LastLine()["text"].asString();
  EXPECT_NE(text.find("carol"), std::string::npos) << text;
  EXPECT_TRUE(text.ends_with(" /p -> /backup/a.txt")) << text;
}

TEST_F(PostProcessTest, FailedEntryIsRecordedAndCountedOnly) {
  const std::string id = _task->getTaskId();
  Post({.error = 1003, .log = true});
  EXPECT_EQ(StoredData()["errors"], Parse(R"([{"code":1003,"path":"/docs/a.txt"}])"));
  EXPECT_EQ(support::ReadTransferLog(CurrentUser(), 10).size(), 0U);
  EXPECT_EQ(_processedNum, 1U);
  _task->remove();
  _accurateProgress = true;
  testing::internal::CaptureStderr();
  Post({.error = 1003});
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "TAVO.Fennox.CopyMove:1661 MVCPUpdateFailFile error\n"),
            std::string::npos);
  EXPECT_EQ(_processedNum, 1U);
}

TEST_F(PostProcessTest, LostDestinationLeavesTheIndexAlone) {
  ASSERT_TRUE(support::CreateSearchIndex(CurrentUser(), "vol"));
  FileSearch::WfmSearchDBTaskMgr registry(CurrentUser().c_str());
  const std::unique_ptr<FileSearch::WfmSearchDBTask> index(registry.getDBTask("vol", "id"));
  testing::internal::CaptureStderr();
  Post({.action = ACTION_MOVE, .inScope = true}, index.get());
  EXPECT_NE(
      testing::internal::GetCapturedStderr().find("TAVO.Fennox.CopyMove:1687 VLIBCFileLStat: (" +
                                                  (Share("backup") / "a.txt").string() +
                                                  "), No such file or directory, tavoerr=700.\n"),
      std::string::npos);
}

TEST_F(PostProcessTest, ShareNameOfAPath) {
  EXPECT_EQ(ShareNameOf("/photos/2020/a.jpg"), "photos");
  EXPECT_EQ(ShareNameOf("/photos"), "photos");
  EXPECT_EQ(ShareNameOf("/"), "");
}

}  // namespace
