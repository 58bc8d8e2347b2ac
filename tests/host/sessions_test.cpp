#include "host/server/sessions.h"

#include <gtest/gtest.h>

#include "host/server/login_throttle.h"

namespace host {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

TEST(Sessions, StandForTheirUserUntilTheyEndOrLieIdle) {
  Sessions sessions;
  const auto start = Sessions::Clock::now();
  const std::string one = sessions.Start("alice", start);
  const std::string other = sessions.Start("bob", start);
  ASSERT_TRUE(sessions.Find(one, start));
  EXPECT_EQ(sessions.Find(one, start)->user, "alice");
  EXPECT_NE(sessions.Find(one, start)->csrf, sessions.Find(other, start)->csrf);
  EXPECT_NE(sessions.Find(one, start)->csrf, one);
  EXPECT_FALSE(sessions.Find("", start));
  EXPECT_FALSE(sessions.Find(one.substr(1), start));
  // Use prolongs a session.
  EXPECT_TRUE(sessions.Find(one, start + hours(20)));
  EXPECT_TRUE(sessions.Find(one, start + hours(40)));
  EXPECT_FALSE(sessions.Find(other, start + hours(25)));
  sessions.End(one);
  EXPECT_FALSE(sessions.Find(one, start + hours(40)));
}

TEST(Sessions, TheOneIdleForLongestGivesWay) {
  Sessions sessions;
  const auto start = Sessions::Clock::now();
  const std::string used = sessions.Start("alice", start);
  const std::string idle = sessions.Start("alice", start);
  ASSERT_TRUE(sessions.Find(used, start + seconds(1)));
  for (std::size_t i = 0; i < Sessions::kMaxSessions - 1; ++i) {
    sessions.Start("bob", start + seconds(2));
  }
  EXPECT_TRUE(sessions.Find(used, start + seconds(3)));
  EXPECT_FALSE(sessions.Find(idle, start + seconds(3)));
}

TEST(LoginThrottle, HoldsBackAnAddressAfterTooManyFailures) {
  LoginThrottle throttle;
  const auto start = LoginThrottle::Clock::now();
  for (int i = 0; i < LoginThrottle::kFailures; ++i) EXPECT_FALSE(throttle.Failed("a", start));
  EXPECT_TRUE(throttle.Failed("a", start + seconds(59)));
  EXPECT_FALSE(throttle.Failed("b", start + seconds(59)));
  EXPECT_FALSE(throttle.Failed("a", start + seconds(61)));
}

}  // namespace
}  // namespace host
