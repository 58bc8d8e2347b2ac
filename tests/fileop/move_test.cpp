// A move loses nothing, whatever happens on its way.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "copier.h"
#include "core/error.h"
#include "volumes.h"

namespace {

// Called in place of these two system calls by everything in this process.
std::function<int(const char* name)> on_unlink;
std::function<int()> on_sync;  // above 0: success is told, and nothing done

}  // namespace

extern "C" int unlinkat(int folder, const char* name, int flags) noexcept {
  if (on_unlink && on_unlink(name) != 0) return -1;
  static const auto real =
      reinterpret_cast<int (*)(int, const char*, int)>(::dlsym(RTLD_NEXT, "unlinkat"));
  return real(folder, name, flags);
}

extern "C" int syncfs(int fd) noexcept {
  if (const int answer = on_sync ? on_sync() : 0; answer != 0) return std::min(answer, 0);
  static const auto real = reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "syncfs"));
  return real(fd);
}

namespace fileop_test {
namespace {

using Kind = Copier::Kind;

class Move : public ::testing::Test {
 protected:
  void TearDown() override {
    on_unlink = nullptr;
    on_sync = nullptr;
  }

  static void FillTree(const std::string& root) {
    for (unsigned i = 0; i < 30; ++i) {
      const std::string folder = root + "/d" + std::to_string(i % 3);
      MakeFolder(folder + "/deeper");
      Write(folder + "/f" + std::to_string(i), Pattern(i * 3000, i));
      Write(folder + "/deeper/g" + std::to_string(i), Pattern(i, i));
    }
  }

  Scratch scratch_;
};

TEST_F(Move, WithinAVolumeIsARenameThatReportsTheHooksSize) {
  FillTree(scratch_ / "src");
  const ino_t inode = StatOf(scratch_ / "src/d1/f1").st_ino;
  Copier copier(Kind::kMove);
  copier.on_dir_size = [&](const std::string& src, const std::string& dst) {
    EXPECT_EQ(src, scratch_ / "src");
    EXPECT_EQ(dst, scratch_ / "dst");
    return 4711ULL;
  };
  ASSERT_EQ(copier.Folder(scratch_ / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(StatOf(scratch_ / "dst/d1/f1").st_ino, inode);
  EXPECT_EQ(copier.progress, 4711U);
  copier.on_dir_size = nullptr;
  ASSERT_EQ(copier.File(scratch_ / "dst/d1/f1", scratch_ / "f"), 0);
  EXPECT_EQ(StatOf(scratch_ / "f").st_ino, inode);
  EXPECT_FALSE(Exists(scratch_ / "dst/d1/f1"));
}

// Open folders are kept from one entry to the next.
TEST_F(Move, AFolderThatWasReplacedIsNeverUsedForLong) {
  for (const char* const end : {"from", "to"}) {
    for (const bool link : {true, false}) {
      const Scratch scratch;
      for (const char* folder : {"from", "to", "outside"}) MakeFolder(scratch / folder);
      for (const char* name : {"from/a", "from/b", "outside/b"}) Write(scratch / name, name);
      Copier copier(Kind::kMove, 1);
      ASSERT_EQ(copier.File(scratch / "from/a", scratch / "to/a"), 0);
      ASSERT_EQ(::rename((scratch / end).c_str(), (scratch / "gone").c_str()), 0);
      const bool source = std::string(end) == "from";
      if (link) {
        ASSERT_EQ(::symlink("outside", (scratch / end).c_str()), 0);
      } else {
        MakeFolder(scratch / end);
        if (source) Write(scratch / "from/b", "new");
      }
      ::usleep(20'000);
      EXPECT_EQ(copier.File(scratch / "from/b", scratch / "to/b") == 0, !link);
      EXPECT_EQ(Read(scratch / "outside/b"), "outside/b");
      EXPECT_EQ(Read(scratch / "gone/b"), source ? "from/b" : "(none)");
      if (link) continue;
      EXPECT_EQ(Read(scratch / "to/b"), source ? "new" : "from/b");
    }
  }
}

TEST_F(Move, OntoAnExistingFolderMergesByRename) {
  FillTree(scratch_ / "src");
  MakeFolder(scratch_ / "dst/d1");
  Write(scratch_ / "dst/d1/f1", "old");
  const ino_t inode = StatOf(scratch_ / "src/d1/f4").st_ino;
  Copier copier(Kind::kMove, 0);
  ASSERT_EQ(copier.Folder(scratch_ / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(StatOf(scratch_ / "dst/d1/f4").st_ino, inode);
  EXPECT_EQ(Read(scratch_ / "dst/d1/f1"), "old");
  // What was skipped stays, and only that.
  EXPECT_EQ(List(scratch_ / "src"), std::vector<std::string>{"d1"});
  EXPECT_EQ(List(scratch_ / "src/d1"), std::vector<std::string>{"f1"});
}

TEST_F(Move, AcrossVolumesKeepsEverythingAndLeavesNothing) {
  SKIP_UNLESS_ROOT();
  Volume other("ext4", 64);
  SKIP_UNLESS_MOUNTED(other);
  FillTree(scratch_ / "src");
  ASSERT_EQ(::lchown((scratch_ / "src/d1/f1").c_str(), 1234, 5678), 0);
  const auto before = Describe(scratch_ / "src");
  Copier copier(Kind::kMove);
  ASSERT_EQ(copier.Folder(scratch_ / "src", other / "dst"), 0);
  EXPECT_EQ(Describe(other / "dst"), before);
  EXPECT_EQ(StatOf(other / "dst/d1/f1").st_uid, 1234U);
  EXPECT_EQ(StatOf(other / "dst/d1/f1").st_gid, 5678U);
  EXPECT_FALSE(Exists(scratch_ / "src"));
}

TEST_F(Move, PowerCutAtTheFirstRemovalFindsEveryCopyOnDisk) {
  SKIP_UNLESS_ROOT();
  Volume other("ext4", 48);
  SKIP_UNLESS_MOUNTED(other);
  FillTree(scratch_ / "src");
  FillTree(scratch_ / "kept");
  std::string image;
  on_unlink = [&](const char*) {
    if (image.empty()) image = other.Snapshot();
    return 0;
  };
  {
    Copier copier(Kind::kMove);
    ASSERT_EQ(copier.Folder(scratch_ / "src", other / "dst"), 0);
  }
  on_unlink = nullptr;
  ASSERT_FALSE(image.empty());
  Recovered after(image);
  for (unsigned i = 0; i < 30; ++i) {
    const std::string folder = "/d" + std::to_string(i % 3);
    for (const std::string& file :
         {folder + "/f" + std::to_string(i), folder + "/deeper/g" + std::to_string(i)}) {
      EXPECT_TRUE(SameContent(after / ("dst" + file), (scratch_ / "kept") + file)) << file;
    }
  }
}

TEST_F(Move, ASyncThatFailsKeepsEverySource) {
  SKIP_UNLESS_ROOT();
  Volume other("tmpfs", 16);
  SKIP_UNLESS_MOUNTED(other);
  FillTree(scratch_ / "src");
  const auto before = Describe(scratch_ / "src");
  on_sync = [] {
    errno = EIO;
    return -1;
  };
  Copier copier(Kind::kMove);
  EXPECT_LT(copier.Folder(scratch_ / "src", other / "dst"), 0);
  EXPECT_EQ(copier.code, core::kErrInputOutput);
  EXPECT_EQ(Describe(scratch_ / "src"), before);
}

// On some kernels such a file system answers syncfs with success and has written
// nothing.
TEST_F(Move, ADestinationThatTurnedReadOnlyBeforeTheSyncKeepsEverySource) {
  SKIP_UNLESS_ROOT();
  for (const bool tree : {true, false}) {
    SCOPED_TRACE(tree ? "tree" : "single file");
    Volume other("ext4", 48, "errors=remount-ro");
    SKIP_UNLESS_MOUNTED(other);
    FillTree(scratch_ / "src");
    const auto before = Describe(scratch_ / "src");
    on_sync = [&] {
      EXPECT_TRUE(other.MeetError());
      return 1;
    };
    Copier copier(Kind::kMove);
    if (tree) {
      EXPECT_LT(copier.Folder(scratch_ / "src", other / "dst"), 0);
      EXPECT_TRUE(copier.error == EROFS || copier.error == EIO) << copier.error;
    } else {
      EXPECT_EQ(copier.File(scratch_ / "src/d1/f1", other / "f1"), 0);
      copier.Free();
    }
    on_sync = nullptr;
    EXPECT_EQ(Describe(scratch_ / "src"), before);
  }
}

TEST_F(Move, SingleFilesShareOneSyncAndGoWhenTheHandleIsFreed) {
  SKIP_UNLESS_ROOT();
  Volume other("ext4", 32);
  SKIP_UNLESS_MOUNTED(other);
  unsigned syncs = 0;
  on_sync = [&] {
    ++syncs;
    return 0;
  };
  Copier copier(Kind::kMove);
  for (int i = 0; i < 20; ++i) {
    const std::string name = "f" + std::to_string(i);
    Write(scratch_ / name, name);
    ASSERT_EQ(copier.File(scratch_ / name, other / name), 0);
    EXPECT_TRUE(Exists(scratch_ / name));
  }
  // Changed after it was copied: it is not the file that is safe now.
  Write(scratch_ / "f3", "changed");
  copier.Free();
  EXPECT_EQ(syncs, 1U);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Exists(scratch_ / ("f" + std::to_string(i))), i == 3);
}

TEST_F(Move, AFailedFileStaysAndTheRestGoes) {
  SKIP_UNLESS_ROOT();
  Volume other("tmpfs", 32);
  SKIP_UNLESS_MOUNTED(other);
  FillTree(scratch_ / "src");
  Copier copier(Kind::kMove);
  copier.on_data = [&](const std::string& src, const std::string&, int*, int*) {
    if (src.ends_with("d1/f4")) {
      VLIBCErrSetEx(0xD900, "test", 1);
      return -1;
    }
    if (src.ends_with("d2/f5")) Write(src, "grown while it was read, and a different size");
    if (src.ends_with("d2/f8")) {
      EXPECT_EQ(::truncate(src.c_str(), 10), 0);
    }
    return 1;
  };
  ASSERT_LT(copier.Folder(scratch_ / "src", other / "dst"), 0);
  EXPECT_EQ(copier.code, 0xD900);
  EXPECT_EQ(List(scratch_ / "src/d1"), std::vector<std::string>{"f4"});
  // Changed while they were copied: whatever was copied, the sources stay.
  EXPECT_EQ(List(scratch_ / "src/d2"), (std::vector<std::string>{"f5", "f8"}));
  EXPECT_FALSE(Exists(scratch_ / "src/d0"));
  EXPECT_FALSE(Exists(other / "dst/d1/f4"));
  EXPECT_EQ(List(other / "dst/d0").size(), 11U);
}

TEST_F(Move, AFileWhoseAttributesDoNotFitStaysAndTheRestGoes) {
  SKIP_UNLESS_ROOT();
  Volume from("xfs", 320);
  Volume to("ext4", 48);
  SKIP_UNLESS_MOUNTED(from);
  SKIP_UNLESS_MOUNTED(to);
  FillTree(from / "src");
  // More than the other file system has room for; late in a folder and early.
  const std::string large(60000, 'x');
  for (const char* name : {"d0/f0", "d0/f27", "d1/f28", "d2/f29"}) {
    ASSERT_EQ(
        ::setxattr((from / "src/" + name).c_str(), "user.large", large.data(), large.size(), 0), 0);
  }
  Copier copier(Kind::kMove);
  copier.reflink = false;
  ASSERT_LT(copier.Folder(from / "src", to / "dst"), 0);
  EXPECT_EQ(copier.error, E2BIG);
  EXPECT_EQ(List(from / "src/d0"), (std::vector<std::string>{"f0", "f27"}));
  EXPECT_EQ(List(from / "src/d1"), std::vector<std::string>{"f28"});
  EXPECT_EQ(List(to / "dst/d0").size(), 9U);
  EXPECT_EQ(List(to / "dst/d2").size(), 10U);
  EXPECT_EQ(Leftovers(to.path()).size(), 0U);
}

TEST_F(Move, ASourceThatChangedAfterItsCopyStays) {
  Volume other("tmpfs", 16);
  SKIP_UNLESS_MOUNTED(other);
  const std::string written = scratch_ / "src/written";
  const std::string swapped = scratch_ / "src/swapped";
  MakeFolder(scratch_ / "src");
  Write(written, "old");
  Write(swapped, "old");
  // Its time of change tells nothing of a file with a second name.
  ASSERT_EQ(::link(swapped.c_str(), (scratch_ / "second").c_str()), 0);
  on_sync = [&, done = false]() mutable {
    if (std::exchange(done, true)) return 0;
    const struct stat st = StatOf(swapped);
    Write(written, "new one");
    Write(scratch_ / "fresh", "new");
    const timespec times[2] = {st.st_atim, st.st_mtim};
    EXPECT_EQ(::utimensat(AT_FDCWD, (scratch_ / "fresh").c_str(), times, 0), 0);
    EXPECT_EQ(::rename((scratch_ / "fresh").c_str(), swapped.c_str()), 0);
    return 0;
  };
  Copier copier(Kind::kMove);
  EXPECT_LT(copier.Folder(scratch_ / "src", other / "dst"), 0);
  EXPECT_EQ(Read(written), "new one");
  EXPECT_EQ(Read(swapped), "new");
}

TEST_F(Move, ASourceThatCouldNotBeRemovedIsNotCopied) {
  SKIP_UNLESS_ROOT();
  Volume other("tmpfs", 16);
  SKIP_UNLESS_MOUNTED(other);
  ASSERT_EQ(::chmod(scratch_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(other.path().c_str(), 0777), 0);
  MakeFolder(scratch_ / "locked");
  Write(scratch_ / "locked/f", "f");
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setresuid(65534, 65534, 65534) != 0) ::_exit(9);
    Copier copier(Kind::kMove);
    const bool refused = copier.File(scratch_ / "locked/f", other / "f") < 0 &&
                         copier.code == core::kErrNotPermitted;
    ::_exit(refused ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_FALSE(Exists(other / "f"));
}

TEST_F(Move, AHookThatCopiesNothingKeepsTheSource) {
  SKIP_UNLESS_ROOT();
  Volume other("tmpfs", 16);
  SKIP_UNLESS_MOUNTED(other);
  MakeFolder(scratch_ / "src");
  Write(scratch_ / "src/nothing", "to be left");
  Write(scratch_ / "src/own", "way");
  Copier copier(Kind::kMove);
  copier.on_file = [](const char* src, const char* dst, void*) {
    if (std::string(src).ends_with("own")) Write(dst, "way");
    return 0;
  };
  EXPECT_EQ(copier.Folder(scratch_ / "src", other / "dst"), 0);
  EXPECT_EQ(List(scratch_ / "src"), std::vector<std::string>{"nothing"});
  EXPECT_EQ(Read(other / "dst/own"), "way");
}

}  // namespace
}  // namespace fileop_test
