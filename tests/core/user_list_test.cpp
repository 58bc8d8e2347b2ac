#include "core/user_list.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

TEST(UserList, NamesUsersGroupsAndEveryone) {
  const passwd* own = getpwuid(geteuid());
  ASSERT_NE(own, nullptr);
  const group* main = getgrgid(own->pw_gid);
  ASSERT_NE(main, nullptr);
  const std::string user = own->pw_name;
  const std::string group = std::string("@") + main->gr_name;
  EXPECT_TRUE(core::IsUserListed(user, {"x", user}));
  EXPECT_TRUE(core::IsUserListed(user, {"x", group}));
  EXPECT_TRUE(core::IsUserListed("no-such-user-here", {group, "*"}));
  EXPECT_FALSE(core::IsUserListed("no-such-user-here", {group}));
  EXPECT_FALSE(core::IsUserListed(user, {"@no-such-group-here", "@", user + "x", ""}));
  EXPECT_FALSE(core::IsUserListed("", {""}));
}
