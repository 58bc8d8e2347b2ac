#include "support/identity.h"

#include <fcntl.h>
#include <grp.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <vector>

#include "scratch.h"
#include "support/errors.h"

namespace {

using IdentityTest = Scratch;

constexpr const char* kAlice = "daemon";
constexpr const char* kBob = "www-data";

bool CanRead(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

std::set<gid_t> GroupsByDatabase(const char* user, gid_t gid) {
  std::vector<gid_t> list(256);
  int count = 256;
  if (getgrouplist(user, gid, list.data(), &count) < 0) return {};
  return {list.begin(), list.begin() + count};
}

std::set<gid_t> GroupsOfProcess() {
  std::vector<gid_t> list(256);
  const int count = getgroups(256, list.data());
  return {list.begin(), list.begin() + std::max(count, 0)};
}

TEST_F(IdentityTest, OneUserCannotReachAnothersFilesAfterTheSwitch) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  for (const char* name : {kAlice, kBob}) {
    const struct passwd* record = getpwnam(name);
    ASSERT_NE(record, nullptr);
    Write(name, "secret");
    ASSERT_EQ(chown(At(name).c_str(), record->pw_uid, record->pw_gid), 0);
    ASSERT_EQ(chmod(At(name).c_str(), 0600), 0);
  }
  const int result = InChild([this] {
    if (WfmLibUGIDSet(nullptr, kAlice) != 0) return 1;
    if (!CanRead(At(kAlice)) || CanRead(At(kBob))) return 2;
    if (setuid(0) == 0 || seteuid(0) == 0 || setegid(0) == 0) return 3;
    // The user it is already: nothing to do. Any other: not without root.
    if (WfmLibUGIDSet("sid", kAlice) != 0) return 4;
    if (WfmLibUGIDSet("sid", kBob) >= 0 || errno != EPERM) return 5;
    if (WfmLibGetErr() != WEBFM_NO_PERMISSION) return 6;
    if (WfmLibUGIDSet("sid", "root") >= 0) return 7;
    return 0;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(IdentityTest, GroupsAreExactlyThoseOfTheUserDatabase) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  // Any account that has more groups than its own shows more.
  std::string name = kAlice;
  setpwent();
  while (const struct passwd* record = getpwent()) {
    if (record->pw_uid == 0 || GroupsByDatabase(record->pw_name, record->pw_gid).size() < 2)
      continue;
    name = record->pw_name;
    break;
  }
  endpwent();
  const int result = InChild([&name] {
    const gid_t stray[] = {0, 4242};
    if (setgroups(2, stray) != 0) return 1;
    if (WfmLibUGIDSet(nullptr, name.c_str()) != 0) return 2;
    const gid_t gid = getpwnam(name.c_str())->pw_gid;
    if (GroupsOfProcess() != GroupsByDatabase(name.c_str(), gid)) return 3;
    gid_t real = 0;
    gid_t effective = 0;
    gid_t saved = 0;
    if (getresgid(&real, &effective, &saved) != 0) return 4;
    return real == gid && effective == gid && saved == gid ? 0 : 5;
  });
  EXPECT_EQ(result, 0) << name;
}

TEST_F(IdentityTest, TheUsersStateFolderIsTheirs) {
  const std::string user = geteuid() == 0 ? kBob : OwnName();
  ASSERT_EQ(InChild([&user] { return WfmLibUGIDSet(nullptr, user.c_str()) == 0 ? 0 : 1; }), 0);
  struct stat st {};
  ASSERT_EQ(stat(At("state/users/" + user).c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, getpwnam(user.c_str())->pw_uid);
  EXPECT_EQ(st.st_mode & 07777, 0700U);
}

TEST_F(IdentityTest, TheOwnUserSucceedsAndUnknownUsersFail) {
  EXPECT_EQ(InChild([] { return WfmLibUGIDSet(nullptr, OwnName().c_str()) == 0 ? 0 : 1; }), 0);
  for (const char* user : {static_cast<const char*>(nullptr), "", "no-such-user-here", "../x"}) {
    support::SetErr(0);
    errno = 0;
    EXPECT_LT(WfmLibUGIDSet(nullptr, user), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(WfmLibGetErr(), WEBFM_UNKNOWN_USER);
  }
}

TEST_F(IdentityTest, AStateFolderThatCannotBeMadeIsAFailure) {
  Write("blocked", "a file");
  config_.server.state = At("blocked");
  Apply();
  EXPECT_EQ(
      InChild([] { return WfmLibUGIDSet(nullptr, OwnName().c_str()) < 0 && errno != 0 ? 0 : 1; }),
      0);
}

TEST(Umask, IsSetAndPutBack) {
  const mode_t before = umask(077);
  EXPECT_EQ(WfmLibUmask(), 077U);
  EXPECT_EQ(umask(022), 022U);
  WfmLibRestoreUmask(before);
  EXPECT_EQ(umask(before), before);
}

}  // namespace
