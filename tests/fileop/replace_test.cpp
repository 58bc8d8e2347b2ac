// What replaces other files does so when it is complete and on disk, and not before.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>

#include "copier.h"
#include "core/error.h"
#include "volumes.h"

namespace {

std::function<int()> on_data_sync;  // called in place of fdatasync

}  // namespace

extern "C" int fdatasync(int fd) {
  if (on_data_sync && on_data_sync() != 0) return -1;
  static const auto real = reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "fdatasync"));
  return real(fd);
}

namespace fileop_test {
namespace {

using Kind = Copier::Kind;

class Replace : public ::testing::Test {
 protected:
  void TearDown() override { on_data_sync = nullptr; }

  std::string Source(int i) const { return scratch_ / ("src/f" + std::to_string(i)); }
  std::string Target(int i) const { return scratch_ / ("dst/f" + std::to_string(i)); }

  // Numbers 0 to `files` at both sides, with differing content.
  void Fill(int files) {
    MakeFolder(scratch_ / "src");
    MakeFolder(scratch_ / "dst");
    for (int i = 0; i < files; ++i) {
      Write(Source(i), "new " + std::to_string(i));
      Write(Target(i), "old " + std::to_string(i));
    }
  }

  int CountNew(int files) const {
    int found = 0;
    for (int i = 0; i < files; ++i) {
      const std::string content = Read(Target(i));
      if (content == "new " + std::to_string(i)) {
        ++found;
      } else {
        EXPECT_EQ(content, "old " + std::to_string(i));
      }
    }
    return found;
  }

  Scratch scratch_;
};

TEST_F(Replace, ManyFilesShareOneSyncAndKeepTheirContentUntilThen) {
  constexpr int kFiles = 60;
  Fill(kFiles);
  int syncs = 0;
  on_data_sync = [&] { return ++syncs, 0; };
  int files = 0;
  Copier copier(Kind::kCopy, 1);
  copier.on_data = [&](const std::string&, const std::string&, int*, int*) {
    if (++files == kFiles) {
      EXPECT_EQ(CountNew(kFiles), 0);
    }
    return 1;
  };
  ASSERT_EQ(copier.Folder(scratch_ / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(CountNew(kFiles), kFiles);
  EXPECT_EQ(syncs, 0);
  EXPECT_EQ(Leftovers(scratch_.path()).size(), 0U);
}

TEST_F(Replace, AStopLeavesOldOrNewAndNothingElse) {
  constexpr int kFiles = 40;
  Fill(kFiles);
  int files = 0;
  Copier copier(Kind::kCopy, 1);
  copier.on_data = [&](const std::string&, const std::string&, int*, int*) { return ++files, 1; };
  copier.on_cancel_check = [&] { return files > kFiles / 2; };
  ASSERT_LT(copier.Folder(scratch_ / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(copier.error, ECANCELED);
  EXPECT_LT(CountNew(kFiles), kFiles);
  EXPECT_EQ(Leftovers(scratch_.path()).size(), 0U);
}

TEST_F(Replace, ASyncThatFailsKeepsTheOldFilesAndTheSources) {
  SKIP_UNLESS_ROOT();
  Volume other("tmpfs", 16);
  SKIP_UNLESS_MOUNTED(other);
  Fill(2);
  MakeFolder(other / "src");
  for (int i = 0; i < 2; ++i) Write(other / ("src/f" + std::to_string(i)), "moved");
  on_data_sync = [] {
    errno = EIO;
    return -1;
  };
  Copier copier(Kind::kMove, 1);
  ASSERT_LT(copier.Folder(other / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(copier.code, core::kErrInputOutput);
  EXPECT_LT(copier.File(other / "src/f0", Target(0)), 0) << "a file of its own is synced, too";
  EXPECT_EQ(CountNew(2), 0);
  EXPECT_EQ(List(other / "src").size(), 2U);
  EXPECT_EQ(Leftovers(scratch_.path()).size(), 0U);
}

TEST_F(Replace, AMoveRemovesTheSourcesOfWhatWaited) {
  SKIP_UNLESS_ROOT();
  Volume other("ext4", 48);
  SKIP_UNLESS_MOUNTED(other);
  constexpr int kFiles = 1100;  // more than wait together
  Fill(kFiles);
  MakeFolder(other / "src");
  for (int i = 0; i < kFiles; ++i) {
    Write(other / ("src/f" + std::to_string(i)), "new " + std::to_string(i));
  }
  Copier copier(Kind::kMove, 1);
  ASSERT_EQ(copier.Folder(other / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(CountNew(kFiles), kFiles);
  EXPECT_FALSE(Exists(other / "src"));
}

}  // namespace
}  // namespace fileop_test
