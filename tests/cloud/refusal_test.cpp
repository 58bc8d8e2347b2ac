// Servers and settings that must not be used, or do not let us in.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "core/error.h"
#include "core/unique_fd.h"
#include "transfer_fixture.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kNoMoreConnections = 40;

class RefusalTest : public TransferTest {
 protected:
  // Opens the remote and says why it did not work.
  std::string Refused(const core::RemoteConfig& remote) {
    Use(remote);
    std::string err;
    EXPECT_FALSE(cloud_->Connect(&err));
    EXPECT_EQ(VLIBCErrGet(), core::kErrNotPermitted) << err;
    EXPECT_FALSE(Upload("file", "x"));
    EXPECT_EQ(VLIBCErrGet(), core::kErrNotPermitted) << err;
    EXPECT_THAT(Names(), IsEmpty());
    return err;
  }

  // A connection that the server has greeted, and so counts.
  static core::UniqueFd TakeTheOneConnection(const Server& server) {
    for (int i = 0; i < 50; ++i) {
      core::UniqueFd connection(ConnectTo(server.port()));
      const timeval limit{2, 0};
      setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
      std::string greeting(4, '\0');
      if (recv(connection.get(), greeting.data(), greeting.size(), MSG_WAITALL) == 4 &&
          (greeting == "SSH-" || greeting == "220 ")) {
        return connection;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return {};
  }
};

TEST_F(RefusalTest, AHostKeyThatIsNotKnownIsRefused) {
  if (!StartServer("sftp")) GTEST_SKIP() << "no sshd can run here";
  core::RemoteConfig remote = server_->Remote();
  remote.known_hosts = "";
  EXPECT_THAT(Refused(remote), HasSubstr("known_hosts"));
  remote.known_hosts = folder_ / "missing";
  EXPECT_THAT(Refused(remote), HasSubstr("missing"));
  remote.known_hosts = folder_ / "other_hosts";
  WriteFile(remote.known_hosts, "");
  Refused(remote);
  const std::string key = ReadAll(folder_ / "user_key.pub");
  WriteFile(remote.known_hosts, "[127.0.0.1]:" + std::to_string(remote.port) + " " + key);
  Refused(remote);
}

TEST_F(RefusalTest, ACertificateOfSomebodyElseIsRefused) {
  if (!StartServer("ftps")) GTEST_SKIP() << "no vsftpd can run here";
  core::RemoteConfig remote = server_->Remote();
  remote.ca_file = "";
  Refused(remote);
  remote = server_->Remote();
  remote.host = "localhost";
  Refused(remote);
}

TEST_F(RefusalTest, AServerWithoutTlsGetsNoPassword) {
  if (!StartServer("ftp")) GTEST_SKIP() << "no vsftpd can run here";
  core::RemoteConfig remote = server_->Remote();
  remote.protocol = "ftps";
  Refused(remote);
}

TEST_F(RefusalTest, AWrongPasswordIsToldAndNeverShown) {
  if (!StartServer("ftp")) GTEST_SKIP() << "no vsftpd can run here";
  core::RemoteConfig remote = server_->Remote();
  remote.password_file = folder_ / "wrong";
  WriteFile(remote.password_file, "let me in\n");
  EXPECT_THAT(Refused(remote), testing::Not(HasSubstr("let me")));
  WriteFile(remote.password_file, "s3cret word\n", 0644);
  EXPECT_THAT(Refused(remote), HasSubstr("only its owner"));
  WriteFile(remote.password_file, "\n");
  EXPECT_THAT(Refused(remote), HasSubstr("no password"));
  remote.password_file = folder_ / "missing";
  EXPECT_THAT(Refused(remote), HasSubstr("missing"));
}

TEST_F(RefusalTest, AWrongKeyOrPasswordOverSshIsRefused) {
  if (!StartServer("sftp")) GTEST_SKIP() << "no sshd can run here";
  core::RemoteConfig remote = server_->Remote();
  remote.key_file = folder_ / "host_key";
  Refused(remote);
  remote.key_file = "";
  remote.password_file = folder_ / "wrong";
  WriteFile(remote.password_file, "let me in\n");
  Refused(remote);
}

TEST_F(RefusalTest, AnFtpServerThatTakesNoMoreConnectionsIsErrorForty) {
  auto server = std::make_unique<FtpServer>(folder_, false);
  server->set_options("max_clients=1\n");
  if (!server->Start()) GTEST_SKIP() << "no vsftpd can run here";
  const core::UniqueFd first = TakeTheOneConnection(*server);
  if (!first) GTEST_SKIP() << "the server greets nobody";
  server_ = std::move(server);
  Use(server_->Remote());
  EXPECT_FALSE(Upload("file", "x"));
  EXPECT_EQ(cloud_->GetErrorCode(), kNoMoreConnections);
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(RefusalTest, AnSshServerThatTakesNoMoreConnectionsIsErrorForty) {
  auto server = std::make_unique<SshServer>(folder_);
  if (geteuid() != 0) GTEST_SKIP() << "accounts that are no logins get no SSH session";
  server->set_options("MaxStartups 1\n");
  if (!server->Start()) GTEST_SKIP() << "no sshd can run here";
  const core::UniqueFd first = TakeTheOneConnection(*server);
  if (!first) GTEST_SKIP() << "the server greets nobody";
  server_ = std::move(server);
  Use(server_->Remote());
  EXPECT_FALSE(Upload("file", "x"));
  EXPECT_EQ(cloud_->GetErrorCode(), kNoMoreConnections);
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(RefusalTest, OnlyListedUsersGetAConnectionAndOnlyToWhatExists) {
  core::RemoteConfig remote;
  remote.name = "server";
  remote.protocol = "ftp";
  remote.host = "127.0.0.1";
  remote.mount = folder_;
  remote.users = {"somebody-else"};
  core::Config config;
  config.remotes.push_back(remote);
  core::SetConfig(config);
  using TAVOCloud::Utils;
  EXPECT_EQ(Utils::CreateCloudByURI(geteuid(), "ftp://server/", 1), nullptr);
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotPermitted);
  EXPECT_EQ(Utils::CreateCloudByURI(geteuid(), "ftp://server2/", 1), nullptr);
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
}

}  // namespace
