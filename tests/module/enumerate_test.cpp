// Entry maps from sources.
#include <sys/stat.h>

#include "module_fixture.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

class EnumerateTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    NewTask(Parse("{}"));
  }
  PathInfo Source(const std::string& name) {
    PathInfo info;
    info.sharePath = "/docs/" + name;
    info.realPath = Share("docs") / name;
    info.codePage = "UTF-8";
    return info;
  }
  std::string Real(const std::string& name) { return Share("docs") / name; }

  void Enumerate(const std::vector<PathInfo>& sources) {
    files.clear();
    folders.clear();
    Handler("start").WebFMParseInputFiles(sources, files, folders, mode, overwrite, rename,
                                          renames);
  }

  EntryMap files, folders;
  int mode = CONFLICT_ERROR;
  Json::Value overwrite, renames;
  bool rename = false;
};

TEST_F(EnumerateTest, SourcesAreSortedByWhatTheyAre) {
  WriteFile(Share("docs") / "file", "12345");
  std::filesystem::create_directories(Share("docs") / "dir/sub");
  WriteFile(Share("docs") / "dir/sub/x", "1234567");
  std::filesystem::create_symlink("dir", Share("docs") / "link");
  ASSERT_EQ(mkfifo(Real("pipe").c_str(), 0600), 0);
  testing::internal::CaptureStderr();
  Enumerate({Source("link"), Source("file"), Source("dir"), Source("gone"), Source("pipe"),
             Source("file"), Source(std::string(300, 'n'))});
  const std::string log = testing::internal::GetCapturedStderr();

  ASSERT_EQ(files.size(), 1U);
  const ENTRY_STAT& file = files.at(Real("file"));
  EXPECT_EQ(file.sharePath, "/docs/file");
  EXPECT_EQ(file.codePage, "UTF-8");
  EXPECT_EQ(file.error, 0);
  EXPECT_EQ(file.result, MOVE_NOT_PROCESSED);
  EXPECT_FALSE(file.destExists);
  ASSERT_EQ(folders.size(), 5U);
  EXPECT_EQ(folders.at(Real("dir")).error, 0);
  EXPECT_EQ(folders.at(Real("link")).error, 401);
  EXPECT_EQ(folders.at(Real("pipe")).error, 401);
  EXPECT_EQ(folders.at(Real("gone")).error, 460);
  EXPECT_NE(folders.at(Real(std::string(300, 'n'))).error, 0);
  EXPECT_NE(log.find("TAVO.Fennox.CopyMove:806 Invalid path:"), std::string::npos) << log;

  // Bytes of both mentions of the file, and of the folder; the cache has each once.
  EXPECT_EQ(_totalAmount, 17U);
  EXPECT_EQ(_dirSizeCache,
            (std::map<std::string, unsigned long long>{{Real("dir"), 7}, {Real("file"), 5}}));
  EXPECT_EQ(_foundFileNum, 1U);
  EXPECT_EQ(_foundDirNum, 1U);
}

TEST_F(EnumerateTest, WithoutAccurateProgressTheTotalIsTheNumberOfSources) {
  WriteFile(Share("docs") / "a", "12345");
  std::filesystem::create_directory(Share("docs") / "d");
  _accurateProgress = false;
  Enumerate({Source("a"), Source("gone"), Source("d")});
  EXPECT_EQ(_totalAmount, 3U);
  EXPECT_TRUE(_dirSizeCache.empty());
  EXPECT_EQ(folders.at(Real("gone")).error, 460);
}

struct ModeCase {
  int requestMode;
  int resultMode;
  std::vector<int> entryModes;
  const char* overwrite;
  bool rename;
  const char* renames;
};

TEST_F(EnumerateTest, ConflictModesOfEntriesAndOfTheRequest) {
  for (const char* name : {"a", "b"}) WriteFile(Share("docs") / name, "");
  const ModeCase cases[] = {
      {0, 0, {0, 0}, "null", false, "null"},
      {3, 3, {3, 3}, "null", false, "null"},
      {1, 1, {2, 2}, "null", true, "null"},
      {1, 1, {3, 1}, R"(["true","false"])", false, "null"},
      {1, 3, {3, 3}, R"(["true","true"])", false, "null"},
      {1, 1, {3, 1}, R"(["true","other"])", false, "null"},
      {1, 1, {3, 1}, R"(["true"])", false, "null"},
      {1, 3, {2, 2}, R"(["false","false"])", true, "null"},
      {1, 3, {2, 3}, R"(["false","true"])", true, R"(["true","false"])"},
      {1, 1, {2, 1}, R"(["true","false"])", true, R"(["true","false"])"},
      {1, 1, {1, 2}, "null", true, R"(["false","true"])"},
      {2, 2, {2, 2}, "null", false, R"(["true","true"])"},
      {1, 1, {2, 1}, R"(["false","false"])", true, R"(["true"])"},
  };
  for (const ModeCase& c : cases) {
    SCOPED_TRACE(std::string(c.overwrite) + " " + c.renames);
    mode = c.requestMode;
    overwrite = Parse(c.overwrite);
    rename = c.rename;
    renames = Parse(c.renames);
    Enumerate({Source("a"), Source("b")});
    EXPECT_EQ(files.at(Real("a")).overwriteMode, c.entryModes[0]);
    EXPECT_EQ(files.at(Real("b")).overwriteMode, c.entryModes[1]);
    EXPECT_EQ(mode, c.resultMode);
  }
}

}  // namespace
