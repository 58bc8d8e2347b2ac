// Counting what lies below a folder.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>
#include <tuple>

#include "core/error.h"
#include "module_fixture.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

class ScanTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    NewTask(Parse("{}"));
  }
  long long Scan(const std::filesystem::path& path) {
    _foundFileNum = _foundDirNum = _foundFileSize = 0;
    return MVCPScanDirectory(path.c_str());
  }
};

TEST_F(ScanTest, HiddenNamesAreNotSeen) {
  const auto top = Share("docs") / "top";
  std::filesystem::create_directories(top / "c/.hidden");
  WriteFile(top / "a", std::string(10, 'x'));
  WriteFile(top / ".b", std::string(5, 'x'));
  WriteFile(top / "c/d", std::string(7, 'x'));
  WriteFile(top / "c/.hidden/e", std::string(9, 'x'));
  EXPECT_EQ(Scan(top), 17);
  EXPECT_EQ(_foundFileNum, 2U);
  EXPECT_EQ(_foundFileSize, 17U);
  EXPECT_EQ(_foundDirNum, 1U);
}

TEST_F(ScanTest, LinksAreFollowedButNotInCircles) {
  const auto top = Share("docs") / "top";
  std::filesystem::create_directories(top / "sub/deep");
  WriteFile(top / "sub/f", std::string(3, 'x'));
  std::filesystem::create_symlink("sub/f", top / "file-link");
  std::filesystem::create_symlink("nowhere", top / "dangling");
  std::filesystem::create_directory(Share("docs") / "other");
  WriteFile(Share("docs") / "other/g", std::string(4, 'x'));
  std::filesystem::create_symlink("../other", top / "dir-link");
  std::filesystem::create_symlink("../..", top / "sub/deep/circle");
  std::filesystem::create_symlink("circle", top / "sub/deep/circle-again");
  EXPECT_EQ(Scan(top), 10);
  EXPECT_EQ(_foundFileNum, 3U);
  EXPECT_EQ(_foundDirNum, 5U);  // sub, deep, dir-link and the two circles
}

TEST_F(ScanTest, CompanionFoldersAreLeftOutForACloudDestination) {
  const auto top = Share("docs") / "top";
  std::filesystem::create_directories(top / "@eaDir");
  WriteFile(top / "@eaDir/x", "1234");
  _destPathInfo.realPath = Share("backup");
  EXPECT_EQ(Scan(top), 4);
  EXPECT_EQ(_foundDirNum, 1U);
  _destPathInfo.realPath = root() / "mount-box";
  EXPECT_EQ(Scan(top), 0);
  EXPECT_EQ(_foundDirNum, 0U);
}

TEST_F(ScanTest, FoldersThatCannotBeScannedCountNothing) {
  WriteFile(Share("docs") / "file", "123");
  for (const auto& [path, code, line] : std::initializer_list<std::tuple<std::string, int, int>>{
           {"", 0xD00, 697},
           {Share("docs") / "gone", 0xBE00, 708},
           {Share("docs") / "file", 0xBE00, 713}}) {
    VLIBCErrSetEx(1, "test", 1);
    EXPECT_EQ(Scan(path), 0) << path;
    EXPECT_EQ(VLIBCErrGet(), code) << path;
    EXPECT_STREQ(core::LastErrorPlace().file, "TAVO.Fennox.CopyMove");
    EXPECT_EQ(core::LastErrorPlace().line, line);
  }
  EXPECT_EQ(MVCPScanDirectory(nullptr), 0);
}

TEST_F(ScanTest, FolderThatCannotBeEnteredCountsOnlyItself) {
  const auto top = Share("docs") / "top";
  std::filesystem::create_directories(top / "closed/inner");
  WriteFile(top / "closed/f", "12345");
  WriteFile(top / "open", "1");
  // Neither right, listing alone, entering alone.
  const std::pair<mode_t, int> cases[] = {{0000, 0xBE00}, {0444, 0xBE00}, {0111, 1}};
  for (const auto& [mode, code] : cases) {
    ASSERT_EQ(chmod((top / "closed").c_str(), mode), 0);
    const std::string told = SaidByChild([&] {
      // Root may enter everything.
      if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(1);
      _lastWriteTime = time(nullptr);
      VLIBCErrSetEx(1, "test", 1);
      std::cerr << Scan(top) << ' ' << _foundFileNum << ' ' << _foundDirNum << ' ' << VLIBCErrGet();
    });
    EXPECT_EQ(told, "1 1 1 " + std::to_string(code)) << mode;
  }
  ASSERT_EQ(chmod((top / "closed").c_str(), 0755), 0);
}

TEST_F(ScanTest, DeepTreesNeedNeitherDescriptorsNorStack) {
  constexpr int kLevels = 1900;
  int folder = open(Share("docs").c_str(), O_DIRECTORY | O_RDONLY);
  for (int i = 0; i < kLevels; ++i) {
    ASSERT_EQ(mkdirat(folder, "d", 0755), 0);
    const int next = openat(folder, "d", O_DIRECTORY | O_RDONLY);
    close(folder);
    folder = next;
  }
  const int file = openat(folder, "f", O_CREAT | O_WRONLY, 0600);
  ASSERT_EQ(write(file, "xyz", 3), 3);
  close(file);
  close(folder);
  EXPECT_EQ(Scan(Share("docs")), 3);
  EXPECT_EQ(_foundDirNum, static_cast<std::uint64_t>(kLevels));
}

TEST_F(ScanTest, StopEndsTheScanAfterTheNextEntry) {
  const auto top = Share("docs") / "top";
  std::filesystem::create_directories(top / "sub");
  WriteFile(top / "sub/a", "12");
  for (int i = 0; i < 10; ++i) WriteFile(Share("docs") / "top" / std::to_string(i), "12");
  _cancelRequested = 1;
  EXPECT_LE(Scan(top), 2);
  EXPECT_LE(_foundFileNum, 1U);
  EXPECT_EQ(_foundDirNum, 0U);
}

TEST_F(ScanTest, ManyFoldersAreEachCountedOnce) {
  for (int i = 0; i < 400; ++i) {
    const auto folder = Share("docs") / std::to_string(i % 20) / std::to_string(i);
    std::filesystem::create_directories(folder);
    WriteFile(folder / "f", std::string(static_cast<std::size_t>(i), 'x'));
  }
  EXPECT_EQ(Scan(Share("docs")), 400 * 399 / 2);
  EXPECT_EQ(_foundFileNum, 400U);
  EXPECT_EQ(_foundDirNum, 420U);
}

TEST_F(ScanTest, LostWorkingDirectoryIsLogged) {
  const std::string told = SaidByChild([&] {
    const auto gone = root() / "gone";
    std::filesystem::create_directory(gone);
    if (chdir(gone.c_str()) != 0) _exit(1);
    std::filesystem::remove(gone);
    const long long sum = Scan(Share("docs"));
    std::cerr << "sum " << sum << '\n';
  });
  EXPECT_NE(told.find("TAVO.Fennox.CopyMove (703) Failed to get current directory\n"),
            std::string::npos)
      << told;
  EXPECT_NE(told.find("sum 0\n"), std::string::npos) << told;
}

}  // namespace
