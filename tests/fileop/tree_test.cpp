// What a tree keeps, what happens to taken names, and what a tree never does.
#include <acl/libacl.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/acl.h>
#include <sys/resource.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>

#include "copier.h"
#include "core/error.h"
#include "volumes.h"

namespace fileop_test {
namespace {

using Kind = Copier::Kind;

void SetTime(const std::string& path, long seconds, long nanoseconds) {
  const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

bool SetAcl(const std::string& path, acl_type_t type, const char* text) {
  acl_t acl = ::acl_from_text(text);
  const bool set = ::acl_set_file(path.c_str(), type, acl) == 0;
  ::acl_free(acl);
  return set;
}

class Tree : public ::testing::Test {
 protected:
  Scratch scratch_;
};

TEST_F(Tree, KeepsWhatEachEntryIs) {
  const std::string src = scratch_ / "src";
  MakeFolder(src + "/sub/empty");
  Write(src + "/plain", "plain");
  Write(src + "/empty", "");
  Write(src + "/line\nbreak \xff\xfe not UTF-8", "name");
  Write(src + "/.fennox-looks-like-ours", "but is not");
  ASSERT_EQ(::symlink("nowhere/at all", (src + "/link").c_str()), 0);
  ASSERT_EQ(::symlink("/etc", (src + "/to-folder").c_str()), 0);
  ASSERT_EQ(::mkfifo((src + "/fifo").c_str(), 0640), 0);
  if (::geteuid() == 0) {
    ASSERT_EQ(::mknod((src + "/device").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
    for (const char* name : {"/link", "/fifo"}) {
      (void)::lsetxattr((src + name).c_str(), "trusted.note", "value", 5, 0);
    }
    (void)SetAcl(src + "/fifo", ACL_TYPE_ACCESS, "u::rw,u:4711:r,g::r,m::r,o::-");
  }
  ASSERT_EQ(::chmod((src + "/plain").c_str(), 04751), 0);
  ASSERT_EQ(::chmod((src + "/sub/empty").c_str(), 01555), 0);
  if (::setxattr((src + "/plain").c_str(), "user.note", "value", 5, 0) == 0) {
    ASSERT_TRUE(SetAcl(src + "/plain", ACL_TYPE_ACCESS, "u::rwx,u:4711:r,g::rx,m::rx,o::x"));
    ASSERT_TRUE(SetAcl(src + "/sub", ACL_TYPE_DEFAULT, "u::rwx,u:4711:rwx,g::rx,m::rwx,o::-"));
    ASSERT_EQ(::chmod((src + "/plain").c_str(), 04751), 0);
  }
  for (const char* name : {"/plain", "/link", "/fifo", "/sub/empty", "/sub"}) {
    SetTime(src + name, 1234567890, 123456789);
  }
  Copier copier(Kind::kCopy);
  ASSERT_EQ(copier.Folder(src, scratch_ / "dst"), 0);
  EXPECT_EQ(Describe(scratch_ / "dst"), Describe(src));
}

TEST_F(Tree, DoesNotInheritAnAclThatTheSourceHasNot) {
  const std::string dst = scratch_ / "dst";
  MakeFolder(dst);
  if (!SetAcl(dst, ACL_TYPE_DEFAULT, "u::rwx,u:4711:rwx,g::rwx,m::rwx,o::rwx")) {
    GTEST_SKIP() << "no ACLs here";
  }
  MakeFolder(scratch_ / "src/sub");
  Write(scratch_ / "src/sub/f", "f");
  ASSERT_EQ(::chmod((scratch_ / "src/sub/f").c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo((scratch_ / "src/sub/fifo").c_str(), 0600), 0);
  Copier copier(Kind::kCopy);
  ASSERT_EQ(copier.Folder(scratch_ / "src", dst + "/new"), 0);
  ASSERT_EQ(copier.File(scratch_ / "src/sub/f", dst + "/f"), 0);
  EXPECT_EQ(Describe(dst + "/new"), Describe(scratch_ / "src"));
  EXPECT_EQ(StatOf(dst + "/f").st_mode, S_IFREG | 0600U);
}

TEST_F(Tree, OwnerIsTheUsersOnACopyAndKeptOnAMove) {
  SKIP_UNLESS_ROOT();
  Volume other("tmpfs", 16);
  SKIP_UNLESS_MOUNTED(other);
  for (const Kind kind : {Kind::kCopy, Kind::kMove}) {
    const std::string src = scratch_ / "src";
    MakeFolder(src);
    Write(src + "/f", "f");
    ASSERT_EQ(::chown((src + "/f").c_str(), 1111, 2222), 0);
    ASSERT_EQ(::chmod((src + "/f").c_str(), 04755), 0);
    Copier copier(kind);
    copier.options.userId = 3333;
    copier.options.groupId = 4444;
    const std::string dst = other / (kind == Kind::kCopy ? "copied" : "moved");
    ASSERT_EQ(copier.Folder(src, dst), 0);
    const struct stat st = StatOf(dst + "/f");
    EXPECT_EQ(st.st_uid, kind == Kind::kCopy ? 3333U : 1111U);
    EXPECT_EQ(st.st_gid, kind == Kind::kCopy ? 4444U : 2222U);
    // Another owner's program must not run as the new one.
    EXPECT_EQ((st.st_mode & S_ISUID) != 0, kind == Kind::kMove);
    EXPECT_EQ(StatOf(dst).st_uid, kind == Kind::kCopy ? 3333U : 0U);
  }
}

TEST_F(Tree, HardLinksStayHardLinks) {
  const std::string src = scratch_ / "src";
  MakeFolder(src + "/a/b");
  MakeFolder(src + "/z");
  Write(src + "/a/one", Pattern(5000));
  for (const char* name : {"/a/two", "/a/b/three", "/z/four", "/five"}) {
    ASSERT_EQ(::link((src + "/a/one").c_str(), (src + name).c_str()), 0);
  }
  ASSERT_EQ(::link((src + "/a/one").c_str(), (scratch_ / "outside").c_str()), 0);
  const std::string dst = scratch_ / "dst";
  MakeFolder(dst + "/z");  // one of the names comes into a folder that exists
  Copier copier(Kind::kCopy);
  ASSERT_EQ(copier.Folder(src, dst), 0);
  const struct stat st = StatOf(dst + "/a/one");
  EXPECT_EQ(st.st_nlink, 5U);
  for (const char* name : {"/a/two", "/a/b/three", "/z/four", "/five"}) {
    EXPECT_EQ(StatOf(dst + name).st_ino, st.st_ino) << name;
  }
  EXPECT_EQ(copier.progress, 5U * 5000U);
}

TEST_F(Tree, ConflictPolicyAppliesToFilesAndFoldersMerge) {
  struct Case {
    int policy;
    const char* at_dst;
    int result;
  };
  for (const Case& at : {Case{-1, "old", -1}, Case{0, "old", 0}, Case{1, "new", 0}}) {
    const std::string root = scratch_ / ("policy" + std::to_string(at.policy));
    MakeFolder(root + "/src/sub");
    MakeFolder(root + "/dst/sub");
    Write(root + "/src/sub/both", "new");
    Write(root + "/src/sub/only", "only");
    Write(root + "/dst/sub/both", "old");
    Write(root + "/dst/sub/theirs", "theirs");
    SetTime(root + "/dst/sub", 1000, 0);
    ASSERT_EQ(::chmod((root + "/dst/sub").c_str(), 0711), 0);
    Copier copier(Kind::kCopy, at.policy);
    EXPECT_EQ(copier.Folder(root + "/src", root + "/dst"), at.result);
    if (at.result < 0) {
      EXPECT_EQ(copier.code, core::kErrExists);
    }
    EXPECT_EQ(Read(root + "/dst/sub/both"), at.at_dst);
    EXPECT_EQ(Read(root + "/dst/sub/only"), "only");
    EXPECT_EQ(Read(root + "/dst/sub/theirs"), "theirs");
    EXPECT_EQ(StatOf(root + "/dst/sub").st_mode & 0777, 0711U);
    // The same for a single file.
    EXPECT_EQ(copier.File(root + "/src/sub/both", root + "/dst/sub/both"), at.result);
    EXPECT_EQ(Read(root + "/dst/sub/both"), at.at_dst);
  }
}

TEST_F(Tree, WithANameGeneratorConflictingFilesGetFreeNames) {
  const std::string root = scratch_.path();
  MakeFolder(root + "/src/sub");
  MakeFolder(root + "/dst/sub");
  Write(root + "/src/sub/a.txt", "new");
  Write(root + "/dst/sub/a.txt", "old");
  Write(root + "/dst/sub/a (1).txt", "older");
  Copier copier(Kind::kCopy, 0);
  copier.options.newName = Default_GenerateNewName;
  ASSERT_EQ(copier.Folder(root + "/src", root + "/dst"), 0);
  EXPECT_EQ(Read(root + "/dst/sub/a (2).txt"), "new");
  EXPECT_EQ(Read(root + "/dst/sub/a.txt"), "old");
}

TEST_F(Tree, FileAgainstFolderIsRefusedWhateverThePolicy) {
  for (const Kind kind : {Kind::kCopy, Kind::kMove}) {
    for (const int policy : {-1, 0, 1}) {
      const std::string root = scratch_ / "root";
      MakeFolder(root + "/src/folder");
      MakeFolder(root + "/dst/file");
      Write(root + "/src/file", "file");
      Write(root + "/src/folder/f", "f");
      Write(root + "/dst/folder", "a file");
      Copier copier(kind, policy);
      EXPECT_LT(copier.File(root + "/src/file", root + "/dst/file"), 0);
      EXPECT_EQ(copier.code, core::kErrFileExpected);
      EXPECT_LT(copier.Folder(root + "/src/folder", root + "/dst/folder"), 0);
      EXPECT_EQ(copier.code, core::kErrFolderExpected);
      EXPECT_LT(copier.Folder(root + "/src", root + "/dst"), 0);
      EXPECT_EQ(Read(root + "/dst/folder"), "a file");
      EXPECT_TRUE(Exists(root + "/src/folder/f") && Exists(root + "/src/file"));
    }
  }
}

TEST_F(Tree, AFileIsNeverReplacedByItself) {
  Write(scratch_ / "a", "content");
  ASSERT_EQ(::link((scratch_ / "a").c_str(), (scratch_ / "b").c_str()), 0);
  for (const Kind kind : {Kind::kCopy, Kind::kMove}) {
    Copier copier(kind, 1);
    for (const char* dst : {"a", "b"}) {
      EXPECT_LT(copier.File(scratch_ / "a", scratch_ / dst), 0);
      EXPECT_EQ(copier.code, core::kErrExists);
    }
    EXPECT_EQ(Read(scratch_ / "a"), "content");
    EXPECT_EQ(Read(scratch_ / "b"), "content");
    MakeFolder(scratch_ / "folder/sub");
    EXPECT_LT(copier.Folder(scratch_ / "folder", scratch_ / "folder/sub/in"), 0);
    EXPECT_EQ(copier.code, core::kErrExists);
    EXPECT_LT(copier.Folder(scratch_ / "folder", scratch_ / "folder"), 0);
    EXPECT_EQ(List(scratch_ / "folder"), std::vector<std::string>{"sub"});
  }
}

TEST_F(Tree, AFailingFileDoesNotStopTheOthersAndIsTheResult) {
  MakeFolder(scratch_ / "src/sub");
  for (const char* name : {"a", "b", "c", "sub/d", "sub/e"}) {
    Write(scratch_ / "src/" + name, Pattern(100));
  }
  Copier copier(Kind::kCopy);
  copier.reflink = false;
  copier.on_data = [&](const std::string& src, const std::string&, int*, int*) {
    if (src.ends_with("/b") || src.ends_with("/d")) {
      VLIBCErrSetEx(src.ends_with("/b") ? 0xD900 : 0x8200, "test", 1);
      errno = EACCES;
      return -1;
    }
    return 1;
  };
  ASSERT_LT(copier.Folder(scratch_ / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(copier.code, 0xD900);
  EXPECT_EQ(copier.error, EACCES);
  EXPECT_EQ(List(scratch_ / "dst"), (std::vector<std::string>{"a", "c", "sub"}));
  EXPECT_EQ(List(scratch_ / "dst/sub"), std::vector<std::string>{"e"});
}

TEST_F(Tree, NeverFollowsALinkThatComesUpOnTheWay) {
  MakeFolder(scratch_ / "secret");
  Write(scratch_ / "secret/key", "secret");
  MakeFolder(scratch_ / "src/z");
  Write(scratch_ / "src/a", "a");
  Write(scratch_ / "src/z/f", "f");
  Copier copier(Kind::kCopy);
  copier.on_data = [&](const std::string& src, const std::string&, int*, int*) {
    if (src.ends_with("/a")) {  // the folder is swapped before the walk comes to it
      EXPECT_EQ(::rename((scratch_ / "src/z").c_str(), (scratch_ / "away").c_str()), 0);
      EXPECT_EQ(::symlink((scratch_ / "secret").c_str(), (scratch_ / "src/z").c_str()), 0);
    }
    return 1;
  };
  copier.reflink = false;
  (void)!copier.Folder(scratch_ / "src", scratch_ / "dst");
  EXPECT_FALSE(Exists(scratch_ / "dst/z/key"));
  // At the destination, and in every component of a given path.
  ASSERT_EQ(::symlink((scratch_ / "secret").c_str(), (scratch_ / "dst/y").c_str()), 0);
  MakeFolder(scratch_ / "more/y");
  Write(scratch_ / "more/y/new", "new");
  copier.on_data = nullptr;
  EXPECT_LT(copier.Folder(scratch_ / "more", scratch_ / "dst"), 0);
  EXPECT_LT(copier.File(scratch_ / "dst/y/key", scratch_ / "key"), 0);
  EXPECT_EQ(copier.code, core::kErrIllegalName);
  EXPECT_LT(copier.File(scratch_ / "more/y/new", scratch_ / "dst/y/new"), 0);
  EXPECT_LT(copier.File(scratch_ / "more/../more/y/new", scratch_ / "dst/new"), 0);
  EXPECT_EQ(List(scratch_ / "secret"), std::vector<std::string>{"key"});
}

TEST_F(Tree, GoesDeeperThanDescriptorsAndPathsReach) {
  SKIP_UNLESS_ROOT();
  Volume other("tmpfs", 64);
  SKIP_UNLESS_MOUNTED(other);
  constexpr int kDepth = 1200;
  const std::string step = "a-folder";
  int fd = ::open(scratch_.path().c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < kDepth; ++i) {
    const std::string name = i == 0 ? "src" : step;
    ASSERT_EQ(::mkdirat(fd, name.c_str(), 0755), 0);
    const int below = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = below;
    ASSERT_GE(fd, 0);
    for (const char* file : {"before", "zafter"}) {
      ::close(::openat(fd, file, O_CREAT | O_WRONLY, 0644));
    }
  }
  ::close(fd);
  rlimit old{};
  ::getrlimit(RLIMIT_NOFILE, &old);
  const rlimit few{256, old.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  {
    Copier copier(Kind::kCopy);
    EXPECT_EQ(copier.Folder(scratch_ / "src", other / "copy"), 0);
  }
  Copier copier(Kind::kMove);
  EXPECT_EQ(copier.Folder(scratch_ / "src", other / "moved"), 0);
  ::setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_FALSE(Exists(scratch_ / "src"));
  for (const char* name : {"copy", "moved"}) {
    const std::string count = "test $(find " + (other / name) + " -type f | wc -l) = 2400";
    EXPECT_EQ(std::system(count.c_str()), 0) << name;
  }
}

TEST_F(Tree, CompanionsFollowTheirTopLevelEntry) {
  MakeFolder(scratch_ / "from/@eaDir");
  MakeFolder(scratch_ / "to");
  Write(scratch_ / "from/pic.jpg", "picture");
  for (const char* name : {"pic.jpg", "pic.jpg@thumb", "pic.jpgx", "other"}) {
    Write(scratch_ / "from/@eaDir/" + name, name);
  }
  Copier copier(Kind::kCopy);
  copier.on_companion = [&](const std::string& src, const std::string& dst) {
    EXPECT_FALSE(dst.ends_with("thumb"));
    Write(dst, Read(src));
  };
  ASSERT_EQ(copier.File(scratch_ / "from/pic.jpg", scratch_ / "to/pic (1).jpg"), 0);
  EXPECT_EQ(List(scratch_ / "to/@eaDir"),
            (std::vector<std::string>{"pic (1).jpg", "pic (1).jpg@thumb"}));
  EXPECT_EQ(Read(scratch_ / "to/@eaDir/pic (1).jpg@thumb"), "pic.jpg@thumb");
  // Inside a tree it is a folder like any other, and its failure is no failure.
  copier.on_companion = nullptr;
  ASSERT_EQ(copier.Folder(scratch_ / "from", scratch_ / "tree"), 0);
  EXPECT_EQ(List(scratch_ / "tree/@eaDir").size(), 4U);
  ASSERT_EQ(copier.File(scratch_ / "from/pic.jpg", scratch_ / "to/again"), 0);
}

TEST(NewName, IsFreeNumberedAndNeverTooLong) {
  const Scratch scratch;
  char buffer[4096];
  const auto made = [&](const std::string& name, int size = sizeof buffer) {
    const int result = Default_GenerateNewName((scratch / name).c_str(), buffer, size);
    return result < 0 ? "(failed)" : std::string(buffer).substr(scratch.path().size() + 1);
  };
  EXPECT_EQ(made("a.tar.gz"), "a.tar (1).gz");
  EXPECT_EQ(made(".hidden"), ".hidden (1)");
  MakeFolder(scratch / "v1.2");
  EXPECT_EQ(made("v1.2"), "v1.2 (1)");
  Write(scratch / "b (1).txt", "");
  ASSERT_EQ(::symlink("nowhere", (scratch / "b (2).txt").c_str()), 0);
  EXPECT_EQ(made("b.txt"), "b (3).txt");
  std::string umlauts;
  for (int i = 0; i < 125; ++i) umlauts += "\xc3\xa4";
  const std::string cut = made(umlauts + ".txt");
  EXPECT_LE(cut.size(), 255U);
  EXPECT_TRUE(cut.ends_with("\xc3\xa4 (1).txt")) << cut;
  EXPECT_EQ(made("b.txt", 20), "(failed)");
}

}  // namespace
}  // namespace fileop_test
