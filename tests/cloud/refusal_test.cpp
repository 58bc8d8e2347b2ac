// Servers and settings that must not be used, or do not let us in.
#include <gmock/gmock.h>
#include <netinet/in.h>
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

int ConnectTo(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  close(fd);
  return -1;
}

class RefusalTest : public TransferTest {
 protected:
  // A connection that the server has greeted, and so counts.
  static core::UniqueFd TakeTheOneConnection(int port) {
    for (int i = 0; i < 50; ++i) {
      core::UniqueFd connection(ConnectTo(port));
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

  // A server of this program that serves one connection only.
  void ExpectErrorForty(const std::string& program, const std::string& limit) {
    if (!server_.Start(program, {"--root", folder_, limit})) {
      GTEST_SKIP() << "no server of " << program << " can run here";
    }
    const core::UniqueFd first = TakeTheOneConnection(server_.remote().port);
    if (!first) GTEST_SKIP() << "the server greets nobody";
    Use(server_.remote());
    EXPECT_FALSE(Upload("file", "x"));
    EXPECT_EQ(cloud_->GetErrorCode(), kNoMoreConnections);
    EXPECT_THAT(Names(), IsEmpty());
  }
};

TEST_F(RefusalTest, AHostKeyThatIsNotKnownIsRefused) {
  if (!StartServer("sftp")) GTEST_SKIP() << "no sshd can run here";
  core::RemoteConfig remote = server_.remote();
  remote.known_hosts = "";
  EXPECT_THAT(Refused(remote), HasSubstr("known_hosts"));
  remote.known_hosts = folder_ / "missing";
  EXPECT_THAT(Refused(remote), HasSubstr("missing"));
  remote.known_hosts = folder_ / "other_hosts";
  WriteFile(remote.known_hosts, "");
  Refused(remote);
  const std::string key = ReadAll(server_.own() / "user_key.pub");
  WriteFile(remote.known_hosts, "[127.0.0.1]:" + std::to_string(remote.port) + " " + key);
  Refused(remote);
}

TEST_F(RefusalTest, ACertificateOfSomebodyElseIsRefused) {
  if (!StartServer("ftps")) GTEST_SKIP() << "no vsftpd can run here";
  core::RemoteConfig remote = server_.remote();
  remote.ca_file = "";
  Refused(remote);
  remote = server_.remote();
  remote.host = "localhost";
  Refused(remote);
}

TEST_F(RefusalTest, AServerWithoutTlsGetsNoPassword) {
  if (!StartServer("ftp")) GTEST_SKIP() << "no vsftpd can run here";
  core::RemoteConfig remote = server_.remote();
  remote.protocol = "ftps";
  Refused(remote);
}

TEST_F(RefusalTest, AWrongPasswordIsToldAndNeverShown) {
  if (!StartServer("ftp")) GTEST_SKIP() << "no vsftpd can run here";
  core::RemoteConfig remote = server_.remote();
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
  core::RemoteConfig remote = server_.remote();
  remote.key_file = server_.own() / "host_key";
  Refused(remote);
  remote.key_file = "";
  remote.password_file = folder_ / "wrong";
  WriteFile(remote.password_file, "let me in\n");
  Refused(remote);
}

TEST_F(RefusalTest, AnFtpServerThatTakesNoMoreConnectionsIsErrorForty) {
  ExpectErrorForty("ftp.py", "--max-clients=1");
}

TEST_F(RefusalTest, AnSshServerThatTakesNoMoreConnectionsIsErrorForty) {
  if (geteuid() != 0) GTEST_SKIP() << "accounts that are no logins get no SSH session";
  ExpectErrorForty("sftp.py", "--option=MaxStartups 1");
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
