#include "core/file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include "core/error.h"
#include "core/unique_fd.h"
#include "scratch.h"

namespace {

class File : public Scratch {};

TEST_F(File, DanglingLinkExists) {
  ASSERT_EQ(symlink("nowhere", At("link").c_str()), 0);
  EXPECT_NE(VLIBCFileExist(At("link").c_str()), 0);
  EXPECT_EQ(VLIBCFileExist(At("nowhere").c_str()), 0);
  EXPECT_EQ(VLIBCFileExist(nullptr), 0);
}

TEST_F(File, LStatFillsOnlyWhatWasAskedFor) {
  Write("file", "12345");
  ASSERT_EQ(symlink("file", At("link").c_str()), 0);
  struct stat real;
  ASSERT_EQ(lstat(At("file").c_str(), &real), 0);

  TAVOSTAT record;
  ASSERT_EQ(VLIBCFileLStat(At("file").c_str(), kStatBasic | kStatOwner, &record), 0);
  EXPECT_EQ(record.st.st_size, 5);
  EXPECT_EQ(record.st.st_mode, real.st_mode);
  EXPECT_EQ(record.st.st_mtim.tv_nsec, real.st_mtim.tv_nsec);
  EXPECT_EQ(record.st.st_uid, real.st_uid);

  ASSERT_EQ(VLIBCFileLStat(At("file").c_str(), kStatOwner, &record), 0);
  EXPECT_EQ(record.st.st_size, 0);
  EXPECT_EQ(record.st.st_mode, 0U);
  EXPECT_EQ(record.st.st_gid, real.st_gid);

  ASSERT_EQ(VLIBCFileLStat(At("link").c_str(), kStatBasic, &record), 0);
  EXPECT_TRUE(S_ISLNK(record.st.st_mode));
}

TEST_F(File, LStatReportsWhyItFailed) {
  TAVOSTAT record;
  EXPECT_LT(VLIBCFileLStat(At("missing").c_str(), kStatBasic, &record), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
  Write("file", "");
  EXPECT_LT(VLIBCFileLStat(At("file/below").c_str(), kStatBasic, &record), 0);
  EXPECT_EQ(VLIBCErrGet(), core::kErrFolderExpected);
}

TEST_F(File, DirSizeCountsHiddenFilesAndFollowsNoLinks) {
  ASSERT_EQ(mkdir(At("outside").c_str(), 0700), 0);
  Write("outside/big", std::string(1000, 'x'));
  ASSERT_EQ(mkdir(At("top").c_str(), 0700), 0);
  ASSERT_EQ(mkdir(At("top/.hidden").c_str(), 0700), 0);
  Write("top/one", "1");
  Write("top/.two", "22");
  Write("top/.hidden/three", "333");
  ASSERT_EQ(symlink("../outside", At("top/folder-link").c_str()), 0);
  ASSERT_EQ(symlink("../outside/big", At("top/file-link").c_str()), 0);
  ASSERT_EQ(mkfifo(At("top/pipe").c_str(), 0600), 0);

  EXPECT_EQ(VLIBGetFullDirSize(At("top").c_str()), 6U);
  EXPECT_EQ(VLIBGetFullDirSize(At("top/.two").c_str()), 2U);
  EXPECT_EQ(VLIBGetFullDirSize(At("top/folder-link").c_str()), 0U);
  EXPECT_EQ(VLIBGetFullDirSize(At("missing").c_str()), 0U);
  EXPECT_EQ(VLIBGetFullDirSize(nullptr), 0U);
}

// A chain of folders too deep for a path, with files beside it on the way.
class DeepTree : public Scratch {
 protected:
  static constexpr int kDepth = 5000;

  // In memory where possible: removing so many folders takes a disk minutes.
  DeepTree()
      : Scratch(access("/dev/shm", W_OK) == 0 ? "/dev/shm"
                                              : std::filesystem::temp_directory_path()) {}

  void SetUp() override {
    core::UniqueFd at(open(path_.c_str(), O_PATH | O_DIRECTORY));
    for (int level = 0; level < kDepth; ++level) {
      // "a" and "z" lie on both sides of the chain, whatever the order.
      for (const char* name : {"a", "z"}) {
        ASSERT_EQ(mkdirat(at.get(), name, 0700), 0);
        const core::UniqueFd side(openat(at.get(), name, O_PATH | O_DIRECTORY));
        const core::UniqueFd file(openat(side.get(), "f", O_WRONLY | O_CREAT, 0600));
        ASSERT_EQ(write(file.get(), "x", 1), 1);
      }
      ASSERT_EQ(mkdirat(at.get(), "m", 0700), 0);
      at = core::UniqueFd(openat(at.get(), "m", O_PATH | O_DIRECTORY));
      ASSERT_TRUE(at.valid());
    }
  }

  void TearDown() override {
    // Empties each level upwards, so that no path is ever long.
    core::UniqueFd at(open(path_.c_str(), O_PATH | O_DIRECTORY));
    int depth = 0;
    for (core::UniqueFd below; below = core::UniqueFd(openat(at.get(), "m", O_PATH)), below;
         ++depth) {
      at = std::move(below);
    }
    for (; depth >= 0; --depth) {
      for (const char* name : {"a/f", "z/f"}) unlinkat(at.get(), name, 0);
      for (const char* name : {"a", "z", "m"}) unlinkat(at.get(), name, AT_REMOVEDIR);
      at = core::UniqueFd(openat(at.get(), "..", O_PATH));
    }
  }
};

TEST_F(DeepTree, IsMeasuredWithFewDescriptors) {
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit few = before;
  few.rlim_cur = 128;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  const unsigned long long size = VLIBGetFullDirSize(path_.c_str());
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(size, 2ULL * kDepth);
}

}  // namespace
