#include "host/cli/token_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "tests/common/scratch.h"

namespace cli {
namespace {

class TokenStoreTest : public testing::Test {
 protected:
  const TempFolder folder_;
  const std::string home_ = folder_.path();
  const std::string path_ = home_ + "/config/fennox/token";
  std::string token_;
  std::string error_;
};

TEST_F(TokenStoreTest, StoresForTheOwnerAlone) {
  ASSERT_TRUE(StoreToken(path_, "secret1", &error_)) << error_;
  ASSERT_TRUE(StoreToken(path_, "secret2", &error_)) << error_;
  struct stat info {};
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600U);
  ASSERT_EQ(::stat((home_ + "/config/fennox").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0700U);
  ASSERT_TRUE(ReadToken(path_, &token_, &error_)) << error_;
  EXPECT_EQ(token_, "secret2");
  const std::filesystem::directory_iterator folder(home_ + "/config/fennox");
  EXPECT_EQ(std::distance(begin(folder), end(folder)), 1) << "temporary files stay behind";
}

TEST_F(TokenStoreTest, NoFileIsNoToken) {
  ASSERT_TRUE(ReadToken(path_, &token_, &error_));
  EXPECT_EQ(token_, "");
}

TEST_F(TokenStoreTest, AFileOpenToOthersIsRefused) {
  ASSERT_TRUE(StoreToken(path_, "secret", &error_));
  ASSERT_EQ(::chmod(path_.c_str(), 0640), 0);
  EXPECT_FALSE(ReadToken(path_, &token_, &error_));
  EXPECT_EQ(error_.find("secret"), std::string::npos);
}

TEST_F(TokenStoreTest, AFileWithoutATokenIsRefused) {
  ASSERT_TRUE(StoreToken(path_, "x", &error_));
  std::ofstream(path_) << "two words\n";
  EXPECT_FALSE(ReadToken(path_, &token_, &error_));
  std::ofstream(path_) << "";
  EXPECT_FALSE(ReadToken(path_, &token_, &error_));
}

TEST_F(TokenStoreTest, AFolderThatCannotBeMadeIsAnError) {
  std::ofstream(home_ + "/config") << "a file";
  EXPECT_FALSE(StoreToken(path_, "secret", &error_));
  EXPECT_NE(error_, "");
}

TEST(Token, CannotSmuggleAHeader) {
  EXPECT_TRUE(IsToken("0123456789abcdef"));
  for (const std::string bad : {"", "a b", "a\r\nX: y", "\xc3\xbc"}) EXPECT_FALSE(IsToken(bad));
}

}  // namespace
}  // namespace cli
