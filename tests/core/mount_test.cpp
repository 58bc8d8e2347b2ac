#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "core/error.h"
#include "core/fs_type.h"
#include "core/mount_table.h"
#include "core/unique_fd.h"
#include "scratch.h"

namespace {

TEST(MountTable, FindsTheMountAPathLiesOn) {
  const auto table = core::ParseMountTable(
      "20 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
      "30 20 8:2 / /srv rw - xfs /dev/sdb1 rw\n"
      "31 30 0:40 / /srv/my\\040photos rw shared:7 master:2 - cifs //nas/photos rw\n"
      "32 30 0:41 / /srv/back\\134slash rw - nfs4 nas:/x rw\n"
      "a line that is no mount\n"
      "33 20 8:3 /sub/dir /srv2 rw - btrfs /dev/sdc rw\n");
  ASSERT_EQ(table.size(), 5U);
  constexpr std::pair<const char*, const char*> kRows[] = {
      {"/", "ext4"},
      {"/etc/passwd", "ext4"},
      {"/srv", "xfs"},
      {"/srv/", "xfs"},
      {"/srvx", "ext4"},
      {"/srv2/a", "btrfs"},
      {"/srv/my photos", "cifs"},
      {"/srv/my photos/not/there", "cifs"},
      {"/srv/my photosx", "xfs"},
      {"//srv//./my photos/", "cifs"},
      {"/srv/my photos/../a", "xfs"},
      {"/../../srv/a", "xfs"},
      {"/srv/back\\slash/a", "nfs4"},
  };
  for (const auto& [path, type] : kRows) {
    const core::MountEntry* entry = core::MountOf(table, path);
    ASSERT_NE(entry, nullptr) << path;
    EXPECT_EQ(entry->type, type) << path;
  }
}

TEST(MountTable, AHiddenMountIsNotTakenWhateverTheOrder) {
  // xfs on /a/b was hidden by btrfs on /a; zfs was moved onto /c/d from elsewhere.
  const auto table = core::ParseMountTable(
      "11 10 0:1 / /a/b rw - xfs x rw\n"
      "15 14 0:5 / /c/d rw - zfs x rw\n"
      "10 1 0:0 / / rw - ext4 x rw\n"
      "12 10 0:2 / /a rw - btrfs x rw\n"
      "13 12 0:3 / /a rw - tmpfs x rw\n"
      "14 10 0:4 / /c rw - f2fs x rw\n");
  EXPECT_EQ(core::MountOf(table, "/a/b/c")->type, "tmpfs");
  EXPECT_EQ(core::MountOf(table, "/c/d/e")->type, "zfs");
  EXPECT_EQ(core::MountOf(table, "/c/e")->type, "f2fs");
}

TEST(MountTable, WithoutARootSomePathsLieOnNoMount) {
  const auto table = core::ParseMountTable("11 10 0:1 / /proc rw - proc proc rw\n");
  EXPECT_EQ(core::MountOf(table, "/etc"), nullptr);
  EXPECT_EQ(core::MountOf(table, "/proc/1")->type, "proc");
}

TEST(FsType, AsksTheKernelAndTheTableAlike) {
  EXPECT_EQ(TAVOGetFSType("/proc", 0), core::kFsOther);
  EXPECT_EQ(TAVOFSIsInMountTable("/proc/self/not there"), core::kFsOther);
  EXPECT_EQ(TAVOGetFSType("/proc/no such file", 0), core::kFsUnknown);
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
  EXPECT_EQ(TAVOGetFSType(nullptr, 0), core::kFsUnknown);
  for (const char* path : {"", "relative", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(TAVOFSIsInMountTable(path), -1);
  }
}

TEST(FsType, RemoteOnesAreThoseBehindANetwork) {
  for (int type = -1; type < 20; ++type) {
    const bool remote = type == 8 || type == 11 || type == 13 || type == 14;
    EXPECT_EQ(TAVOFSIsRemoteFS(type), remote ? 1 : 0) << type;
  }
}

class RealMount : public Scratch {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can mount";
  }

  // Runs `body` in a child with mounts of its own; its result is the exit code.
  static int Apart(const std::function<int()>& body) {
    return InChild([&] {
      if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0) {
        return kNoMounts;
      }
      return body();
    });
  }

  static constexpr int kNoMounts = 99;
};

TEST_F(RealMount, TheTypeIsThatOfTheMountedFileSystem) {
  const std::string folder = At("a b\tc\\d");
  ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
  const int result = Apart([&] {
    if (mount("none", folder.c_str(), "tmpfs", 0, "size=1m") != 0) return kNoMounts;
    if (TAVOGetFSType(folder.c_str(), 0) != core::kFsTmpfs) return 1;
    if (TAVOFSIsInMountTable((folder + "/x/y").c_str()) != core::kFsTmpfs) return 2;
    if (mount("none", folder.c_str(), "proc", 0, nullptr) != 0) return kNoMounts;
    if (TAVOFSIsInMountTable(folder.c_str()) != core::kFsOther) return 3;
    return 0;
  });
  if (result == kNoMounts) GTEST_SKIP() << "mounting is not allowed here";
  EXPECT_EQ(result, 0);
}

TEST_F(RealMount, AMountThatNeverAnswersIsStillKnown) {
  const std::string folder = At("dead");
  ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
  const int result = Apart([&] {
    alarm(60);  // a call that waits for the mount ends the child
    const core::UniqueFd device(open("/dev/fuse", O_RDWR));
    const std::string options =
        "fd=" + std::to_string(device.get()) + ",rootmode=40000,user_id=0,group_id=0";
    if (!device || mount("dead", folder.c_str(), "fuse.sshfs", 0, options.c_str()) != 0) {
      return kNoMounts;
    }
    return TAVOFSIsInMountTable((folder + "/some/file").c_str()) == core::kFsFuse ? 0 : 1;
  });
  if (result == kNoMounts) GTEST_SKIP() << "user-space mounts are not to be had here";
  EXPECT_EQ(result, 0);
}

}  // namespace
