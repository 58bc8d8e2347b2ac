#include "host/server/accounts.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/server/login_policy.h"
#include "host/server/options.h"
#include "temporary_state.h"
#include "tests/common/scratch.h"

namespace host {
namespace {

class AccountsTest : public testing::Test {
 protected:
  void SetUp() override {
    user_ = UseTemporaryState();
    folder_ = TemporaryFolder() + "/accounts";
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directory(folder_);
    config_.server.state = folder_ + "/deep/state";
  }

  std::string TokenFile(const char* name, const std::string& text, mode_t mode = 0600) {
    return WriteFile(folder_ + "/" + name, text, mode);
  }

  static mode_t ModeOf(const std::string& path) {
    struct stat st {};
    EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
    return st.st_mode & 07777;
  }

  std::string user_;
  std::string folder_;
  core::Config config_;
};

TEST_F(AccountsTest, TheOwnTokenIsPrivateRandomAndKept) {
  std::string err;
  ASSERT_TRUE(PrepareState(config_, &err)) << err;
  EXPECT_EQ(ModeOf(config_.server.state), 0700U);
  std::string first;
  std::string second;
  Tokens tokens;
  ASSERT_TRUE(LoadTokens(config_, &tokens, &first, &err)) << err;
  EXPECT_EQ(first.size(), 32U);
  EXPECT_EQ(ModeOf(config_.server.state + "/token"), 0600U);
  EXPECT_EQ(tokens.UserOf(first), user_);
  EXPECT_FALSE(tokens.UserOf(first + "0"));
  EXPECT_FALSE(tokens.UserOf(""));
  ASSERT_TRUE(LoadTokens(config_, &tokens, &second, &err));
  EXPECT_EQ(first, second);
  std::filesystem::remove(config_.server.state + "/token");
  ASSERT_TRUE(LoadTokens(config_, &tokens, &second, &err));
  EXPECT_NE(first, second);
  ASSERT_EQ(::chmod((config_.server.state + "/token").c_str(), 0644), 0);
  EXPECT_FALSE(LoadTokens(config_, &tokens, &second, &err));
  EXPECT_NE(err.find("0600"), std::string::npos) << err;
}

TEST_F(AccountsTest, IssuedTokensStandForTheirUsersAndNoOwnOneIsMade) {
  const std::string secret(20, 's');
  config_.tokens = {{user_, TokenFile("good", secret + "\n")}};
  std::string err;
  std::string own = "old";
  Tokens tokens;
  ASSERT_TRUE(PrepareState(config_, &err)) << err;
  EXPECT_EQ(ModeOf(config_.server.state), 0711U);
  ASSERT_TRUE(LoadTokens(config_, &tokens, &own, &err)) << err;
  EXPECT_EQ(own, "");
  EXPECT_EQ(tokens.UserOf(secret), user_);
  EXPECT_FALSE(std::filesystem::exists(config_.server.state + "/token"));
}

TEST_F(AccountsTest, BadIssuedTokensAreRefusedInWords) {
  const std::string secret(20, 's');
  const std::vector<core::TokenConfig> bad[] = {
      {{user_, folder_ + "/missing"}},
      {{user_, folder_}},
      {{user_, TokenFile("open", secret, 0640)}},
      {{user_, TokenFile("short", "0123456789abcde\n")}},
      {{user_, TokenFile("lines", secret + "\n" + secret + "\n")}},
      {{user_, TokenFile("blank", secret + " " + secret)}},
      {{user_, TokenFile("long", std::string(600, 'x'))}},
      {{"no-such-user-here", TokenFile("good", secret)}},
      {{user_, TokenFile("one", secret)}, {user_, TokenFile("same", secret)}},
  };
  for (const auto& entries : bad) {
    config_.tokens = entries;
    std::string err;
    std::string own;
    Tokens tokens;
    EXPECT_FALSE(LoadTokens(config_, &tokens, &own, &err)) << entries[0].file;
    EXPECT_EQ(err.find(secret), std::string::npos) << err;
    EXPECT_FALSE(err.empty());
  }
}

TEST_F(AccountsTest, OnlyOrdinaryAccountsAndThoseWithATokenAreServedAmongSeveral) {
  config_.server.auth = "pam";
  EXPECT_TRUE(HasSeveralUsers(config_));
  for (const char* user : {"root", "nobody", "games", "no-such-user-here", ""}) {
    EXPECT_FALSE(MayServe(config_, user)) << user;
  }
  config_.login.min_uid = 1;
  EXPECT_TRUE(MayServe(config_, "games"));
  EXPECT_FALSE(MayServe(config_, "root"));
  EXPECT_FALSE(MayServe(config_, "nobody"));
  config_.server.auth = "single";
  config_.tokens = {{"games", "/unused"}};
  EXPECT_TRUE(MayServe(config_, "games"));
  EXPECT_FALSE(MayServe(config_, "root"));
}

TEST_F(AccountsTest, OptionsWinOverTheFileAndBadOnesAreRefused) {
  std::ofstream(folder_ + "/fennox.toml")
      << "[server]\nstate = \"" << folder_ << "/a\"\nlisten = \"127.0.0.1:1\"\n"
      << "[[share]]\nname = \"x\"\npath = \"/etc\"\n[[share]]\nname = \"y\"\npath = \"/etc\"\n";
  Options options;
  options.config_file = folder_ + "/fennox.toml";
  options.listen = "127.0.0.1:0";
  options.shares = {"x=" + folder_, "new=/tmp/"};
  core::Config config;
  std::string err;
  ASSERT_TRUE(BuildConfig(options, &config, &err)) << err;
  EXPECT_EQ(config.server.listen, "127.0.0.1:0");
  EXPECT_EQ(config.server.state, folder_ + "/a");
  ASSERT_EQ(config.shares.size(), 3U);
  EXPECT_EQ(config.shares[0].path, folder_);
  EXPECT_EQ(config.shares[2].path, "/tmp");
  for (const char* share :
       {"nameless", "=/tmp", "x=", "x=/no/such/folder", "a/b=/tmp", "home=/tmp"}) {
    options.shares = {share};
    core::Config refused;
    err.clear();
    EXPECT_FALSE(BuildConfig(options, &refused, &err)) << share;
    EXPECT_FALSE(err.empty());
  }
  EXPECT_FALSE(BuildConfig(Options{}, &config, &err));
}

}  // namespace
}  // namespace host
