#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/config.h"
#include "scratch.h"

namespace {

constexpr uid_t kNobody = 65534;

struct stat StatOf(const std::string& path) {
  struct stat st = {};
  lstat(path.c_str(), &st);
  return st;
}

class StateFolder : public Scratch {
 protected:
  void SetUp() override {
    chmod(path_.c_str(), 0755);
    core::Config config;
    config.server.state = path_;
    core::SetConfig(config);
  }
  void TearDown() override {
    if (getuid() == 0) {
      ASSERT_EQ(seteuid(0), 0);
    }
    core::SetConfig({});
    umask(mask_);
  }

  const mode_t mask_ = umask(022);
};

TEST_F(StateFolder, NamesThatAreNoFileNamesHaveNone) {
  EXPECT_EQ(core::UserStateFolder("alice"), At("users/alice"));
  EXPECT_EQ(core::UserStateFolder("DOM\\al ice@x"), At("users/DOM\\al ice@x"));
  for (const std::string& name :
       {std::string(), std::string("."), std::string(".."), std::string(".alice"),
        std::string("a/b"), std::string("/"), std::string("a\0b", 3), std::string("a\nb"),
        std::string(256, 'a')}) {
    EXPECT_EQ(core::UserStateFolder(name), "") << name;
    EXPECT_FALSE(core::EnsureUserStateFolder(name, getuid(), getgid()));
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_FALSE(std::filesystem::exists(At("users")));
  core::SetConfig({});
  EXPECT_EQ(core::UserStateFolder("alice"), "");
}

TEST_F(StateFolder, IsMadeForItsUserAlone) {
  umask(0177);
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(core::EnsureUserStateFolder("alice", geteuid(), getegid()));
    EXPECT_EQ(StatOf(At("users/alice")).st_mode & 07777, 0700U);
    EXPECT_EQ(StatOf(At("users/alice")).st_uid, geteuid());
    ASSERT_EQ(chmod(At("users/alice").c_str(), 0777), 0);
  }
}

TEST_F(StateFolder, MissingStateIsAnError) {
  core::Config config;
  config.server.state = At("missing");
  core::SetConfig(config);
  EXPECT_FALSE(core::EnsureUserStateFolder("alice", getuid(), getgid()));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(StateFolder, LinksAreNotTaken) {
  ASSERT_EQ(mkdir(At("elsewhere").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(At("users").c_str(), 0755), 0);
  ASSERT_EQ(symlink("../elsewhere", At("users/alice").c_str()), 0);
  EXPECT_FALSE(core::EnsureUserStateFolder("alice", kNobody, kNobody));
  EXPECT_EQ(errno, ENOTDIR);
  ASSERT_EQ(rename(At("users").c_str(), At("other").c_str()), 0);
  ASSERT_EQ(symlink("elsewhere", At("users").c_str()), 0);
  EXPECT_FALSE(core::EnsureUserStateFolder("bob", kNobody, kNobody));
  EXPECT_EQ(StatOf(At("elsewhere")).st_mode & 07777, 0755U);
  EXPECT_EQ(StatOf(At("elsewhere")).st_uid, geteuid());
  EXPECT_TRUE(std::filesystem::is_empty(At("elsewhere")));
}

TEST_F(StateFolder, RootGivesItToTheUserWhoThenReachesNoOther) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give folders away";
  ASSERT_TRUE(core::EnsureUserStateFolder("alice", kNobody, kNobody));
  ASSERT_TRUE(core::EnsureUserStateFolder("bob", 0, 0));
  EXPECT_EQ(StatOf(At("users/alice")).st_uid, kNobody);
  EXPECT_EQ(StatOf(At("users/alice")).st_gid, kNobody);
  EXPECT_EQ(StatOf(At("users")).st_uid, 0U);
  EXPECT_EQ(StatOf(At("users")).st_mode & 07777, 0711U);

  ASSERT_EQ(seteuid(kNobody), 0);
  EXPECT_TRUE(core::EnsureUserStateFolder("alice", kNobody, kNobody));
  Write("users/alice/file", "own");
  EXPECT_EQ(Content("users/alice/file"), "own");
  EXPECT_NE(eaccess(At("users").c_str(), R_OK), 0);
  EXPECT_FALSE(core::EnsureUserStateFolder("bob", kNobody, kNobody));
  EXPECT_EQ(errno, EPERM);
  EXPECT_FALSE(core::EnsureUserStateFolder("carol", kNobody, kNobody));
  EXPECT_EQ(errno, EACCES);
}

}  // namespace
