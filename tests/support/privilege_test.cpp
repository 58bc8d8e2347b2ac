#include "support/privilege.h"

#include <acl/libacl.h>
#include <grp.h>
#include <sys/acl.h>

#include <cerrno>

#include "scratch.h"
#include "support/errors.h"
#include "support/identity.h"

namespace {

class PrivilegeTest : public Scratch {
 protected:
  void Share(const std::string& name, std::vector<std::string> read, std::vector<std::string> write,
             int restrictions = 0) {
    core::ShareConfig share;
    share.name = name;
    share.path = At(name);
    share.read = std::move(read);
    share.write = std::move(write);
    share.restrictions = restrictions;
    config_.shares.push_back(share);
    Apply();
  }

  // "type/flags", or the error's number.
  static std::string Rights(const std::string& path, const std::string& user) {
    int type = -1;
    int flags = -1;
    if (WfmLibGetPrivilege(path.c_str(), user.c_str(), nullptr, &type, &flags) == 0) {
      return std::to_string(type) + "/" + std::to_string(flags);
    }
    EXPECT_EQ(type, -1);
    return std::to_string(WfmLibGetErr());
  }
};

TEST_F(PrivilegeTest, ListsDecideAndWritersMayRead) {
  Share("docs", {"*"}, {"alice"});
  Share("docs2", {"bob"}, {"alice"}, 7);
  Share("none", {}, {});
  EXPECT_EQ(Rights("/docs/x", "alice"), "2/0");
  EXPECT_EQ(Rights("/docs", "bob"), "1/0");
  EXPECT_EQ(Rights("/docs2/a/b", "alice"), "2/7");
  EXPECT_EQ(Rights("/docs2", "bob"), "1/7");
  EXPECT_EQ(Rights("/docs2/", "carol"), "0/7");
  EXPECT_EQ(Rights("/none/x", "alice"), "0/0");
  EXPECT_EQ(Rights("/home/x", "alice"), "2/0");
  for (const char* path : {"/doc", "/docs3/x", "/", "", "docs/x", "sftp://docs/x"}) {
    EXPECT_EQ(Rights(path, "alice"), "470") << path;
  }
}

TEST_F(PrivilegeTest, UsersSeeTheSharesTheyMayRead) {
  Share("b", {"*"}, {});
  Share("hidden", {"somebody-else"}, {});
  Share("a", {}, {OwnName()}, 4);
  std::string seen;
  for (const support::ShareView& view : support::SharesOf(OwnName())) {
    if (view.name == "home") continue;
    seen += view.name + (view.writable ? "+" : "-") + std::to_string(view.restrictions) + " ";
  }
  EXPECT_EQ(seen, "b-0 a+4 ");
}

int Access(const std::string& path, int mode) {
  return ACLAccess(path.c_str(), mode) == 0 ? 0 : WfmLibGetErr();
}

TEST_F(PrivilegeTest, MissingPathsAndBadModesAreErrors) {
  EXPECT_EQ(Access(At("missing"), 4), WEBFM_NOT_FOUND);
  EXPECT_EQ(Access(At("state"), 2), 0);
  EXPECT_EQ(Access(At("state"), 8), WEBFM_BAD_PARAMETER);
  EXPECT_EQ(ACLAccess(nullptr, 4), -1);
}

TEST_F(PrivilegeTest, TheKernelAnswersForTheSwitchedUser) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  MakeDir("closed", 0700);
  MakeDir("no-search", 0766);
  MakeDir("open", 0777);
  const int result = InChild([this] {
    if (WfmLibUGIDSet(nullptr, "daemon") != 0) return 1;
    if (Access(At("open"), 2) != 0) return 2;
    if (Access(At("no-search"), 2) != WEBFM_NO_PERMISSION) return 3;
    if (Access(At("no-search"), 4) != 0) return 4;
    if (Access(At("closed"), 4) != WEBFM_NO_PERMISSION || errno != EACCES) return 5;
    return 0;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(PrivilegeTest, TheEffectiveUserCountsNotTheRealOne) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  MakeDir("closed", 0700);
  EXPECT_EQ(InChild([this] {
              if (Access(At("closed"), 6) != 0) return 1;
              if (seteuid(1) != 0) return 2;
              return Access(At("closed"), 4) == WEBFM_NO_PERMISSION ? 0 : 3;
            }),
            0);
}

TEST_F(PrivilegeTest, AnAclEntryIsHonoured) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  MakeDir("listed", 0700);
  const acl_t acl = acl_from_text("u::rwx,u:daemon:rwx,g::---,m::rwx,o::---");
  ASSERT_NE(acl, nullptr);
  const int set = acl_set_file(At("listed").c_str(), ACL_TYPE_ACCESS, acl);
  acl_free(acl);
  if (set != 0 && errno == EOPNOTSUPP) GTEST_SKIP() << "no ACLs on this file system";
  ASSERT_EQ(set, 0);
  const auto accessAs = [this](const char* user) {
    return InChild([this, user] {
      if (WfmLibUGIDSet(nullptr, user) != 0) return 99;
      return ACLAccess(At("listed").c_str(), 6) == 0 ? 0 : 1;
    });
  };
  EXPECT_EQ(accessAs("daemon"), 0);
  EXPECT_EQ(accessAs("www-data"), 1);
}

}  // namespace
