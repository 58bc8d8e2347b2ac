// What only SFTP servers have: keys, and what they can do.
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>

#include "core/error.h"
#include "transfer_fixture.h"

namespace {

using testing::ElementsAre;

class SftpTest : public TransferTest {
 protected:
  void Start(const std::vector<std::string>& options) {
    if (!StartServer("sftp", options)) GTEST_SKIP() << "no SSH server can run here";
  }

  // A key and its "….pub".
  std::string MakeKey(const std::string& type, const std::string& name, const std::string& words) {
    std::string path = folder_ / (type + "-" + name);
    EXPECT_EQ(std::system(("ssh-keygen -q -t " + type + " -N '" + words + "' -f " + path).c_str()),
              0);
    return path;
  }
};

TEST_F(SftpTest, KeysOfOtherKindsAreTaken) {
  for (const char* type : {"ecdsa", "rsa"}) {
    SCOPED_TRACE(type);
    const std::string host_key = MakeKey(type, "host", "");
    ASSERT_NO_FATAL_FAILURE(Start({"--option", "HostKey " + host_key}));
    if (IsSkipped()) return;
    core::RemoteConfig remote = server_.remote();
    // The server has a key of another kind, too, which is not known here.
    remote.known_hosts = folder_ / "known";
    WriteFile(remote.known_hosts,
              "[127.0.0.1]:" + std::to_string(remote.port) + " " + ReadFile(host_key + ".pub"));
    const std::string hash = "ssh-keygen -q -H -f " + remote.known_hosts + " 2> /dev/null";
    ASSERT_EQ(std::system(hash.c_str()), 0);
    EXPECT_EQ(ReadFile(remote.known_hosts).find("127.0.0.1"), std::string::npos) << "it is hashed";
    const std::string own_key = MakeKey(type, "user", "let me in");
    std::ofstream(server_.own() / "user_key.pub", std::ios::app) << ReadFile(own_key + ".pub");
    remote.key_file = own_key;
    remote.password_file = WriteFile(folder_ / "words", "let me in\n", 0600);
    Use(remote);
    EXPECT_TRUE(Upload(type, "text")) << std::hex << VLIBCErrGet();
    remote.password_file = WriteFile(folder_ / "words", "let me out\n", 0600);
    Use(remote);
    std::string err;
    EXPECT_FALSE(cloud_->Connect(&err));
    EXPECT_EQ(VLIBCErrGet(), core::kErrNotPermitted) << err;
    server_.Close();
  }
  EXPECT_THAT(Names(), ElementsAre("ecdsa", "rsa"));
}

TEST_F(SftpTest, ATransferGoesOnOverNewKeys) {
  Start({"--option", "RekeyLimit 1M"});
  if (!IsSkipped()) ExpectWholeFiles({kBig});
}

TEST_F(SftpTest, AServerThatTakesLittleAndReplacesNothingIsServed) {
  Start({"--option", "ForceCommand internal-sftp -P limits,posix-rename"});
  if (!IsSkipped()) ExpectWholeFiles({1, kBig});
}

}  // namespace
