#include "support/path_info.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "scratch.h"
#include "support/errors.h"

namespace {

namespace fs = std::filesystem;
using std::string_literals::operator""s;

class PathInfoTest : public Scratch {
 protected:
  PathInfoTest() {
    MakeDir("photos/2020/deep");
    MakeDir("photos2/private");
    Write("photos/2020/a.jpg", "a");
    AddShare("photos", "photos");
    AddShare("photos2", "photos2");
  }

  // The real path, or the error's number.
  std::string Resolve(const std::string& path) {
    PathInfo info;
    info.share = "untouched";
    if (PathInfoFactory::create(OwnName().c_str(), path, info)) return info.realPath;
    EXPECT_EQ(info.share, "untouched");
    return std::to_string(WfmLibGetErr());
  }
};

TEST_F(PathInfoTest, FillsEachFieldOfALocalPath) {
  PathInfo info;
  ASSERT_TRUE(PathInfoFactory::create(OwnName().c_str(), "/photos/2020/a.jpg", info));
  EXPECT_EQ(info.sharePath, "/photos/2020/a.jpg");
  EXPECT_EQ(info.realPath, At("photos/2020/a.jpg"));
  EXPECT_EQ(info.share, "photos");
  EXPECT_EQ(info.codePage, "UTF-8");
  EXPECT_EQ(info.remoteBase + info.mountUri, "");
  struct stat volume {};
  struct stat file {};
  ASSERT_EQ(stat(info.volume.c_str(), &volume), 0);
  ASSERT_EQ(stat(info.realPath.c_str(), &file), 0);
  EXPECT_EQ(volume.st_dev, file.st_dev);
}

TEST_F(PathInfoTest, TheVolumeIsTheMountPoint) {
  struct stat shm {};
  struct stat dev {};
  if (stat("/dev/shm", &shm) != 0 || stat("/dev", &dev) != 0 || shm.st_dev == dev.st_dev) {
    GTEST_SKIP() << "/dev/shm is no mount of its own";
  }
  config_.shares[0].path = "/dev/shm";
  Apply();
  PathInfo info;
  ASSERT_TRUE(PathInfoFactory::create(OwnName().c_str(), "/photos/not-yet-there", info));
  EXPECT_EQ(info.volume, "/dev/shm");
}

TEST_F(PathInfoTest, TheLastComponentNeedNotExistButItsParentMust) {
  EXPECT_EQ(Resolve("/photos"), At("photos"));
  EXPECT_EQ(Resolve("/photos/"), At("photos"));
  EXPECT_EQ(Resolve("/photos/2020/"), At("photos/2020"));
  EXPECT_EQ(Resolve("/photos/new"), At("photos/new"));
  EXPECT_EQ(Resolve("/photos/no/new"), "460");
  EXPECT_EQ(Resolve("/photos/2020/a.jpg/new"), "460");
  EXPECT_EQ(Resolve("/photo/x"), "470");
  EXPECT_EQ(Resolve("/photos3"), "470");
  EXPECT_EQ(Resolve("sftp://nowhere/x"), "470");
}

TEST_F(PathInfoTest, RefusesPathsThatAreNotWellFormed) {
  for (const std::string& path :
       {""s, "/"s, "//"s, "photos/2020"s, "/photos/.."s, "/photos/../photos2/private"s,
        "/photos/./2020"s, "/photos/2020/."s, "/photos//2020"s, "/photos/2020//"s, "/../photos"s,
        "/photos/a\0b"s, "/photos/2020\0/../.."s, "/photos/\xE4.jpg"s,
        "/photos/\xC0\xAE\xC0\xAE/x"s, "/photos/\xED\xA0\x80"s, "sftp://"s, "sftp://x/../y"s}) {
    EXPECT_EQ(Resolve(path), "418") << path;
  }
  EXPECT_EQ(Resolve("/photos/" + std::string(256, 'n')), "462");
  EXPECT_EQ(Resolve("/photos/" + std::string(255, 'n')), At("photos/" + std::string(255, 'n')));
  std::string longPath = "/photos";
  while (longPath.size() <= 4096) longPath += "/component";
  EXPECT_EQ(Resolve(longPath), "462");
}

TEST_F(PathInfoTest, LinksAreFollowedOnlyInsideTheShare) {
  fs::create_directory_symlink("2020/deep", At("photos/inside"));
  fs::create_directory_symlink(At("photos/2020"), At("photos/absolute"));
  fs::create_directory_symlink("../photos2", At("photos/sibling"));
  fs::create_directory_symlink("/", At("photos/root"));
  fs::create_directory_symlink("sibling", At("photos/chain"));
  fs::create_directory_symlink("loop", At("photos/loop"));
  EXPECT_EQ(Resolve("/photos/inside/x"), At("photos/2020/deep/x"));
  EXPECT_EQ(Resolve("/photos/absolute/deep/x"), At("photos/2020/deep/x"));
  // "photos2" begins like the share's folder but is another one.
  EXPECT_EQ(Resolve("/photos/sibling/x"), "407");
  EXPECT_EQ(Resolve("/photos/chain/private/x"), "407");
  EXPECT_EQ(Resolve("/photos/root/etc/passwd"), "407");
  EXPECT_EQ(Resolve("/photos/loop/x"), "468");
  // Out and back in again ends inside.
  EXPECT_EQ(Resolve("/photos/root" + At("photos/2020/x")), At("photos/2020/x"));
  // The last component itself is not followed.
  EXPECT_EQ(Resolve("/photos/root"), At("photos/root"));
}

TEST_F(PathInfoTest, AShareReachedThroughALinkHasItsCanonicalRoot) {
  fs::create_directory_symlink("photos", At("alias"));
  config_.shares[0].path = At("alias");
  Apply();
  EXPECT_EQ(Resolve("/photos"), At("photos"));
  EXPECT_EQ(Resolve("/photos/2020/a.jpg"), At("photos/2020/a.jpg"));
}

TEST_F(PathInfoTest, TheHomeAreaIsTheUsersHomeFolder) {
  const struct passwd* record = getpwuid(geteuid());
  if (!record || !fs::is_directory(record->pw_dir)) GTEST_SKIP() << "this user has no home";
  const std::string home = fs::canonical(record->pw_dir);
  PathInfo info;
  ASSERT_TRUE(PathInfoFactory::create(OwnName().c_str(), "/home/x", info));
  EXPECT_EQ(info.realPath, home + "/x");
  EXPECT_EQ(info.share, "home");
  EXPECT_FALSE(PathInfoFactory::create("no-such-user-here", "/home/x", info));
  EXPECT_EQ(WfmLibGetErr(), WEBFM_UNKNOWN_USER);
  EXPECT_FALSE(PathInfoFactory::create(nullptr, "/home/x", info));
}

TEST_F(PathInfoTest, NamesLieInTheSharesCharacterSet) {
  config_.shares[0].code_page = "ISO-8859-1";
  Apply();
  EXPECT_EQ(Resolve("/photos/\xC3\xA4.jpg"), At("photos/\xE4.jpg"));
  EXPECT_EQ(Resolve("/photos/\xE4.jpg"), At("photos/\xE4.jpg"));
  EXPECT_EQ(Resolve("/photos/日本"), "418");
}

TEST(PathInfo, OnlyTheHomeAreaIsTheUsersHome) {
  for (const char* path : {"/home", "/home/", "/home/x/y", "home"}) {
    EXPECT_TRUE(IsDirUserHome(path, nullptr)) << path;
  }
  for (const char* path : {"/homes", "/home2/x", "home/x", "homes", "/x/home", "", "/", "//home"}) {
    EXPECT_FALSE(IsDirUserHome(path, nullptr)) << path;
  }
  EXPECT_FALSE(IsDirUserHome(nullptr, nullptr));
}

int Check(const std::string& path, bool isVfs = false) {
  support::SetErr(0);
  const int result = WfmCheckPath(path.c_str(), false, 32, nullptr, false, isVfs, nullptr);
  EXPECT_EQ(result == 0, WfmLibGetErr() == 0);
  return WfmLibGetErr();
}

TEST_F(PathInfoTest, RealPathsAreCheckedByTheirShareAndMount) {
  EXPECT_EQ(Check("/"), 0);
  EXPECT_EQ(Check("/srv/a b\n"), 0);
  EXPECT_EQ(Check("/srv/...x/.y"), 0);
  for (const char* path : {"", "srv", "/srv/", "/srv//x", "/srv/./x", "/srv/..", "/x\xFF"}) {
    EXPECT_EQ(Check(path), WEBFM_ILLEGAL_NAME) << path;
  }
  EXPECT_EQ(Check("/" + std::string(255, 'x')), 0);
  EXPECT_EQ(Check("/" + std::string(256, 'x')), WEBFM_NAME_TOO_LONG);
  EXPECT_EQ(Check("/srv/a\r\nDELE b", true), WEBFM_ILLEGAL_NAME);
  EXPECT_EQ(WfmCheckPath(nullptr, false, 32, nullptr, false, false, nullptr) == 0, false);

  EXPECT_EQ(Check(At("photos/\xE4")), WEBFM_ILLEGAL_NAME);
  config_.shares[0].code_page = "ISO-8859-1";
  Apply();
  EXPECT_EQ(Check(At("photos/\xE4")), 0);
  EXPECT_EQ(Check(At("photos2/\xE4")), WEBFM_ILLEGAL_NAME);
}

}  // namespace
