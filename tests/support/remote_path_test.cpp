// Paths on a remote mount. The mount table is this file's own, in the place of
// the library's.
#include <filesystem>

#include "scratch.h"
#include "support/errors.h"
#include "support/path_info.h"
#include "support/privilege.h"
#include "vfs/vfs.h"

namespace {

vfs::MountInfo& Mount() {
  static vfs::MountInfo mount;
  return mount;
}

}  // namespace

bool vfs::FindBySharePath(const std::string& path, vfs::MountInfo* out) {
  if (!(path + "/").starts_with(Mount().base_uri)) return false;
  *out = Mount();
  return true;
}

bool vfs::FindByFullPath(const std::string& path, vfs::MountInfo* out) {
  if (!path.starts_with(Mount().mount_path)) return false;
  *out = Mount();
  return true;
}

namespace {

class RemotePathTest : public Scratch {
 protected:
  RemotePathTest() {
    MakeDir("mnt/a/b");
    MakeDir("outside");
    Mount() = {"nas2", "sftp", "sftp://nas2/", At("mnt"), "/srv", "UTF-8", 1, true, {"*"}};
    core::RemoteConfig remote;
    remote.name = "nas2";
    remote.users = {"alice"};
    config_.remotes.push_back(remote);
    Apply();
  }

  static PathInfo Resolve(const std::string& path) {
    PathInfo info;
    support::SetErr(0);
    const bool done = PathInfoFactory::create("alice", path, info);
    EXPECT_EQ(done, WfmLibGetErr() == 0) << path;
    return info;
  }
};

TEST_F(RemotePathTest, FillsBothSidesOfThePath) {
  const PathInfo info = Resolve("sftp://nas2/a/b/new/");
  EXPECT_EQ(info.sharePath, "sftp://nas2/a/b/new");
  EXPECT_EQ(info.remoteBase, "sftp://nas2/a/b/new");
  EXPECT_EQ(info.realPath, At("mnt/a/b/new"));
  EXPECT_EQ(info.share, "sftp://nas2/");
  EXPECT_EQ(info.mountUri, "sftp://nas2/");
  EXPECT_EQ(info.codePage, "UTF-8");
}

TEST_F(RemotePathTest, TheMountItselfKeepsItsLastSlash) {
  for (const char* path : {"sftp://nas2/", "sftp://nas2"}) {
    const PathInfo info = Resolve(path);
    EXPECT_EQ(info.sharePath, "sftp://nas2/");
    EXPECT_EQ(info.remoteBase, "sftp://nas2");
    EXPECT_EQ(info.realPath, At("mnt"));
  }
}

TEST_F(RemotePathTest, TheServersPathFollowsLinksAsTheLocalOneDoes) {
  std::filesystem::create_directory_symlink("a/b", At("mnt/link"));
  std::filesystem::create_directory_symlink(At("outside"), At("mnt/out"));
  const PathInfo info = Resolve("sftp://nas2/link/x");
  EXPECT_EQ(info.realPath, At("mnt/a/b/x"));
  EXPECT_EQ(info.remoteBase, "sftp://nas2/a/b/x");
  Resolve("sftp://nas2/out/x");
  EXPECT_EQ(WfmLibGetErr(), WEBFM_NO_PERMISSION);
  Resolve("sftp://nas2/../outside");
  EXPECT_EQ(WfmLibGetErr(), WEBFM_ILLEGAL_NAME);
  Resolve("sftp://nas22/a");
  EXPECT_EQ(WfmLibGetErr(), WEBFM_NO_SHARE);
}

TEST_F(RemotePathTest, OnlyTheMountsUsersHaveRightsOnIt) {
  int type = -1;
  int flags = -1;
  EXPECT_EQ(WfmLibGetPrivilege("sftp://nas2/a", "alice", nullptr, &type, &flags), 0);
  EXPECT_EQ(type, 2);
  EXPECT_EQ(WfmLibGetPrivilege("sftp://nas2/a", "bob", nullptr, &type, &flags), 0);
  EXPECT_EQ(type, 0);
  EXPECT_NE(WfmLibGetPrivilege("sftp://nas22/a", "alice", nullptr, &type, &flags), 0);
}

TEST_F(RemotePathTest, QuestionsAboutTheMountAreAnswered) {
  std::string codePage;
  int connections = 0;
  EXPECT_TRUE(WfmLibGetVFSCodePageAndMaxConnection("sftp://nas2/a", 0, codePage, connections));
  EXPECT_EQ(codePage, "UTF-8");
  EXPECT_EQ(connections, 1);
  EXPECT_FALSE(WfmLibGetVFSCodePageAndMaxConnection("/photos/a", 0, codePage, connections));
  EXPECT_EQ(WfmLibGetVFSServerIDFromURI("sftp://nas2/a"), "sftp://nas2/");
  EXPECT_EQ(WfmLibGetVFSServerIDFromURI("/nas2/a"), "");
  EXPECT_TRUE(WfmLibIsVFSSharePath("sftp://nas2/a"));
  EXPECT_FALSE(WfmLibIsVFSSharePath(nullptr));
  EXPECT_TRUE(WfmLibIsCloudVFSFullPath(At("mnt/a").c_str()));
  Mount().cloud = false;
  EXPECT_FALSE(WfmLibIsCloudVFSFullPath(At("mnt/a").c_str()));
  EXPECT_TRUE(WfmLibIsVFSFullPath(At("mnt/a").c_str()));
  EXPECT_FALSE(WfmLibIsVFSFullPath("/srv"));
}

TEST_F(RemotePathTest, TheMountsCharacterSetDecidesWhichNamesAreValid) {
  const std::string path = At("mnt/\xE4");
  EXPECT_NE(WfmCheckPath(path.c_str(), false, 32, nullptr, false, true, nullptr), 0);
  Mount().code_page = "ISO-8859-1";
  EXPECT_EQ(WfmCheckPath(path.c_str(), false, 32, nullptr, false, true, nullptr), 0);
  EXPECT_EQ(Resolve("sftp://nas2/ä").remoteBase, "sftp://nas2/\xE4");
}

}  // namespace
