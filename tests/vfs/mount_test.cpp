#include "mount_table.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "core/config.h"
#include "tests/common/scratch.h"
#include "vfs/vfs.h"

namespace {

vfs::MountInfo Mount(const char* name, const char* path) {
  vfs::MountInfo mount;
  mount.name = name;
  mount.protocol = "sftp";
  mount.base_uri = std::string("sftp://") + name + "/";
  mount.mount_path = path;
  return mount;
}

const vfs::MountTable kTable = {Mount("nas", "/mnt/nas"), Mount("nas2", "/mnt/nas2"),
                                Mount("in", "/mnt/nas/in")};

TEST(MountTest, AUriBelongsToTheMountOfExactlyItsName) {
  const auto name = [](const char* path) {
    const auto mount = vfs::FindByUri(kTable, path);
    return mount ? mount->name : std::string("none");
  };
  EXPECT_EQ(name("sftp://nas/a"), "nas");
  EXPECT_EQ(name("sftp://nas2/a"), "nas2");
  EXPECT_EQ(name("sftp://nas"), "nas");
  for (const char* path : {"sftp://nas3/a", "ftp://nas/a", "sftp://na", "/mnt/nas", "sftp:///a",
                           "sftp:/nas/a", "", "x/sftp://nas/"}) {
    EXPECT_EQ(name(path), "none") << path;
  }
}

TEST(MountTest, ALocalPathBelongsToTheInnermostMount) {
  const auto name = [](const char* path) {
    const auto mount = vfs::FindByLocalPath(kTable, path);
    return mount ? mount->name : std::string("none");
  };
  EXPECT_EQ(name("/mnt/nas"), "nas");
  EXPECT_EQ(name("/mnt/nas/x"), "nas");
  EXPECT_EQ(name("/mnt/nas2"), "nas2");
  EXPECT_EQ(name("/mnt/nas/in/x"), "in");
  EXPECT_EQ(name("/mnt/nas/inner"), "nas");
  for (const char* path : {"/mnt/nas22", "/mnt", "", "mnt/nas"}) EXPECT_EQ(name(path), "none");
}

TEST(MountTest, AConfiguredRemoteIsNoMountUntilItIsMounted) {
  core::Config config;
  config.remotes.resize(1);
  config.remotes[0].name = "nas";
  config.remotes[0].protocol = "sftp";
  core::SetConfig(config);
  vfs::MountInfo mount;
  std::string text;
  EXPECT_FALSE(vfs::FindBySharePath("sftp://nas/a", &mount));
  EXPECT_FALSE(vfs::FindByFullPath("/", &mount));
  EXPECT_FALSE(TAVOVFS::Utils::GetProtocol("sftp://nas/a", text));
  EXPECT_FALSE(TAVOVFS::Utils::GetBaseURI("sftp://nas/a", text, true));
  EXPECT_TRUE(TAVOVFS::Utils::GetBaseURI("sftp://nas/a/b", text, false));
  EXPECT_EQ(text, "sftp://nas/");
  EXPECT_FALSE(TAVOVFS::Utils::GetBaseURI("gopher://nas/a", text, false));
  EXPECT_FALSE(TAVOVFS::Utils::GetBaseURI("/photos/a", text, false));
}

TEST(MountTest, AFolderGivenAsMountHoldsThePathsOfItsRemote) {
  const TempFolder own;
  const std::string& folder = own.path();
  std::filesystem::create_directory(folder + "/real");
  std::filesystem::create_directory_symlink(folder + "/real", folder + "/link");
  core::Config config;
  config.remotes.resize(4);
  const std::vector<std::string> mounts = {folder + "/link/", folder + "/missing", "auto", "/"};
  for (std::size_t i = 0; i < config.remotes.size(); ++i) {
    config.remotes[i].name = "m" + std::to_string(i);
    config.remotes[i].protocol = "ftp";
    config.remotes[i].mount = mounts[i];
  }
  config.remotes[0].path = "/srv/";
  config.remotes[0].code_page = "ISO-8859-1";
  config.remotes[0].max_connections = 1;
  config.remotes[0].users = {"alice"};
  core::SetConfig(config);

  vfs::MountInfo mount;
  ASSERT_TRUE(vfs::FindBySharePath("ftp://m0/a", &mount));
  EXPECT_EQ(mount.base_uri, "ftp://m0/");
  EXPECT_EQ(mount.mount_path, folder + "/real") << "real paths begin so";
  EXPECT_EQ(mount.remote_base, "/srv");
  EXPECT_EQ(mount.code_page, "ISO-8859-1");
  EXPECT_EQ(mount.max_connections, 1);
  EXPECT_EQ(mount.users, std::vector<std::string>{"alice"});
  EXPECT_FALSE(mount.cloud);
  mount = {};
  ASSERT_TRUE(vfs::FindByFullPath(folder + "/real/a/b", &mount));
  EXPECT_EQ(mount.name, "m0");
  EXPECT_FALSE(vfs::FindByFullPath(folder + "/realm", &mount));
  EXPECT_FALSE(vfs::FindByFullPath("/etc", &mount));
  for (const char* path : {"ftp://m1/a", "ftp://m2/a", "ftp://m3/a", "sftp://m0/a"}) {
    EXPECT_FALSE(vfs::FindBySharePath(path, &mount)) << path;
  }

  config.remotes[0].protocol = "dropbox";
  core::SetConfig(config);
  ASSERT_TRUE(vfs::FindBySharePath("dropbox://m0/a", &mount)) << "another configuration counts";
  EXPECT_TRUE(mount.cloud);
  core::SetConfig({});
  EXPECT_FALSE(vfs::FindByFullPath(folder + "/real/a", &mount));
}

TEST(MountTest, ProtocolsAreDescribed) {
  Json::Value description;
  for (const char* name : {"sftp", "ftp", "ftps", "webdav", "webdavs", "dropbox"}) {
    ASSERT_TRUE(TAVOVFS::Protocol::GetProtocol(name, description)) << name;
    EXPECT_EQ(description["enable_curl"], "true") << name;
    EXPECT_GT(description["port"].asInt(), 0) << name;
    EXPECT_FALSE(description["description"].asString().empty()) << name;
  }
  for (const char* name : {"SFTP", "", "file"}) {
    EXPECT_FALSE(TAVOVFS::Protocol::GetProtocol(name, description)) << name;
  }
  EXPECT_FALSE(TAVOVFS::Protocol::GetProtocol(nullptr, description));
}

TEST(MountTest, AProtocolMayBeUsedByTheUsersOfAConfiguredRemote) {
  core::Config config;
  config.remotes.resize(3);
  config.remotes[0].protocol = "sftp";
  config.remotes[0].users = {"alice", "@root"};
  config.remotes[1].protocol = "ftp";
  config.remotes[1].users = {"*"};
  config.remotes[2].protocol = "webdav";
  config.remotes[2].users = {"@no-such-group", "@", ""};
  core::SetConfig(config);
  const auto may = [](const char* user, const char* protocol) {
    return TAVOVFS::Cfg::CheckPermissionByUserName(user, TAVOVFS::VFS_USER_CONFIG_PROTOCOL,
                                                   protocol);
  };
  EXPECT_TRUE(may("alice", "sftp"));
  EXPECT_TRUE(may("root", "sftp")) << "by group";
  EXPECT_FALSE(may("bob", "sftp"));
  EXPECT_TRUE(may("bob", "ftp"));
  EXPECT_FALSE(may("root", "webdav"));
  EXPECT_FALSE(may("alice", "dropbox")) << "no remote of that kind";
  EXPECT_FALSE(may("", "ftp"));
  EXPECT_FALSE(may(nullptr, "ftp"));
  EXPECT_FALSE(may("alice", nullptr));
  EXPECT_FALSE(TAVOVFS::Cfg::CheckPermissionByUserName(
      "alice", static_cast<TAVOVFS::_VFS_USER_CONFIG_>(2), "ftp"));
}

TEST(MountTest, TheActorIsTheUserGivenOrTheProcessItself) {
  EXPECT_EQ(TAVOVFS::GetActorUID(), geteuid());
  EXPECT_FALSE(TAVOVFS::InitGlobal(static_cast<uid_t>(-1), false));
  EXPECT_TRUE(TAVOVFS::InitGlobal(1234, false));
  EXPECT_EQ(TAVOVFS::GetActorUID(), 1234U);
}

}  // namespace
