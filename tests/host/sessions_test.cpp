#include "host/server/sessions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "host/server/login_throttle.h"
#include "temporary_state.h"

namespace host {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

class SessionsTest : public testing::Test {
 protected:
  void SetUp() override {
    for (const auto& entry : std::filesystem::directory_iterator(TemporaryFolder())) {
      if (entry.path().filename().string().starts_with("sessions")) {
        std::filesystem::remove(entry.path());
      }
    }
    Open(&sessions_);
  }

  void Open(Sessions* sessions) const {
    std::string err;
    ASSERT_TRUE(sessions->Open(file_, hours(24), hours(100), &err)) << err;
  }

  std::string Start(const std::string& user, Sessions::Clock::time_point when) {
    const std::string secret = sessions_.Start(user, SessionKind::kCookie, when);
    EXPECT_EQ(secret.size(), 64U);
    return secret;
  }

  std::optional<Session> Find(const std::string& secret, Sessions::Clock::time_point when) {
    return sessions_.Find(secret, SessionKind::kCookie, when);
  }

  std::string file_ = TemporaryFolder() + "/sessions.db";
  Sessions::Clock::time_point start_ = Sessions::Clock::now();
  Sessions sessions_;
};

TEST_F(SessionsTest, StandForTheirUserUntilTheyEndLieIdleOrAreTooOld) {
  const std::string one = Start("alice", start_);
  const std::string other = Start("bob", start_);
  ASSERT_TRUE(Find(one, start_));
  EXPECT_EQ(Find(one, start_)->user, "alice");
  EXPECT_NE(Find(one, start_)->csrf, Find(other, start_)->csrf);
  EXPECT_NE(Find(one, start_)->csrf, one);
  EXPECT_FALSE(Find("", start_));
  EXPECT_FALSE(Find(one.substr(1), start_));
  EXPECT_FALSE(sessions_.Find(one, SessionKind::kBearer, start_));
  // Use prolongs a session, up to its whole life.
  for (int i = 20; i <= 100; i += 20) EXPECT_TRUE(Find(one, start_ + hours(i))) << i;
  EXPECT_FALSE(Find(one, start_ + hours(101)));
  EXPECT_FALSE(Find(other, start_ + hours(25)));
  EXPECT_TRUE(Find(other, start_ + hours(23)));
  EXPECT_TRUE(sessions_.End(other));
  EXPECT_FALSE(Find(other, start_ + hours(23)));
}

TEST_F(SessionsTest, OutliveTheServerAndTheFileHoldsNoSecret) {
  const std::string secret = Start("alice", start_);
  const std::string csrf = Find(secret, start_)->csrf;
  Sessions later;
  Open(&later);
  const auto found = later.Find(secret, SessionKind::kCookie, start_ + hours(1));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->user, "alice");
  EXPECT_EQ(found->csrf, csrf);
  std::string bytes;
  for (const std::string& file : {file_, file_ + "-wal"}) {
    std::ifstream stream(file, std::ios::binary);
    bytes.append(std::istreambuf_iterator<char>(stream), {});
    struct stat st {};
    ASSERT_EQ(::stat(file.c_str(), &st), 0) << file;
    EXPECT_EQ(st.st_mode & 0777U, 0600U) << file;
  }
  EXPECT_NE(bytes.find("alice"), std::string::npos);
  EXPECT_EQ(bytes.find(secret), std::string::npos);
  EXPECT_EQ(bytes.find(csrf), std::string::npos);
}

TEST_F(SessionsTest, BeyondItsNumberAUsersIdlestSessionGivesWay) {
  const std::string other = Start("bob", start_);
  const std::string idle = Start("alice", start_);
  const std::string used = Start("alice", start_);
  ASSERT_TRUE(Find(used, start_ + hours(1)));
  for (int i = 0; i < Sessions::kMaxOfUser - 1; ++i) Start("alice", start_ + hours(2));
  EXPECT_TRUE(Find(used, start_ + hours(2)));
  EXPECT_FALSE(Find(idle, start_ + hours(2)));
  EXPECT_TRUE(Find(other, start_ + hours(2)));
}

TEST_F(SessionsTest, ADamagedFileIsRefusedInWords) {
  std::ofstream(file_ + "x") << std::string(5000, 'x');
  Sessions sessions;
  std::string err;
  EXPECT_FALSE(sessions.Open(file_ + "x", hours(1), hours(1), &err));
  EXPECT_NE(err.find("sessions.dbx"), std::string::npos) << err;
  EXPECT_EQ(sessions.Start("alice", SessionKind::kCookie), "");
}

TEST(LoginThrottle, HoldsBackAnAddressAfterTooManyFailures) {
  LoginThrottle throttle;
  const auto start = LoginThrottle::Clock::now();
  for (int i = 0; i < LoginThrottle::kFailures; ++i) {
    EXPECT_FALSE(throttle.Blocked("a", start));
    EXPECT_FALSE(throttle.Failed("a", start));
  }
  EXPECT_TRUE(throttle.Blocked("a", start + seconds(59)));
  EXPECT_TRUE(throttle.Failed("a", start + seconds(59)));
  EXPECT_FALSE(throttle.Blocked("b", start + seconds(59)));
  EXPECT_FALSE(throttle.Blocked("a", start + seconds(61)));
  EXPECT_FALSE(throttle.Failed("a", start + seconds(61)));
}

}  // namespace
}  // namespace host
