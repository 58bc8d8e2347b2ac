#include "core/user.h"

#include <gtest/gtest.h>

#include "core/error.h"

TEST(User, RootIsFoundWithHomeAndIds) {
  TAVOUSER* user = nullptr;
  ASSERT_EQ(TAVOUserGet("root", &user), 0);
  EXPECT_EQ(user->name, "root");
  EXPECT_EQ(user->home, "/root");
  EXPECT_EQ(user->uid, 0U);
  TAVOUserFree(user);
  EXPECT_EQ(TavoCgiUIDGet("session", "root"), 0U);
}

TEST(User, UnknownNamesAreNotFound) {
  const std::string long_name(100000, 'x');
  for (const char* name :
       {"no such user", "", "root:x", long_name.c_str(), static_cast<const char*>(nullptr)}) {
    TAVOUSER placeholder;
    TAVOUSER* user = &placeholder;
    VLIBCErrSetEx(0, nullptr, 0);
    EXPECT_NE(TAVOUserGet(name, &user), 0);
    EXPECT_EQ(user, nullptr);
    EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
    uid_t uid = 5;
    gid_t gid = 6;
    EXPECT_LT(TAVOUserGetUGID(name, &uid, &gid), 0);
    EXPECT_EQ(uid, 5U);
    EXPECT_EQ(TavoCgiUIDGet("session", name), static_cast<uid_t>(-1));
  }
}
