// Servers and settings that must not be used, or do not let us in.
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <map>
#include <thread>

#include "core/error.h"
#include "core/unique_fd.h"
#include "transfer_fixture.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

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

  // Ends the server's sessions once one of them asks `program` whom to let in.
  void EndSessionsThatAsk(const std::string& program) const {
    for (int i = 0; i < 3000; ++i) {
      for (const pid_t pid : server_.Sessions()) {
        if (ReadFile("/proc/" + std::to_string(pid) + "/comm") == program + "\n") {
          return server_.EndSessions();
        }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "no login";
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

TEST_F(RefusalTest, NobodyIsLetInByMistakeAndNoPasswordIsShown) {
  using Remote = core::RemoteConfig;
  struct Case {
    std::function<void(Remote&)> change;
    const char* words;
  };
  const auto file = [this](const char* name, const std::string& text, mode_t mode = 0600) {
    return WriteFile(folder_ / name, text, mode);
  };
  const std::string missing = folder_ / "missing";
  const auto wrong_password = [&](Remote& r) { r.password_file = file("wrong", "let me in\n"); };
  const auto lost_password = [&](Remote& r) { r.password_file = missing; };
  const auto other_name = [](Remote& r) { r.host = "localhost"; };  // not in the certificate
  const std::map<std::string, std::vector<Case>> cases = {
      {"sftp",
       {{[](Remote& r) { r.known_hosts = ""; }, "known_hosts"},
        {[&](Remote& r) { r.known_hosts = missing; }, "missing"},
        {[&](Remote& r) { r.known_hosts = file("none", ""); }, ""},
        {[&](Remote& r) {
           const std::string key = ReadFile(server_.own() / "user_key.pub");
           r.known_hosts = file("other", "[127.0.0.1]:" + std::to_string(r.port) + " " + key);
         },
         ""},
        {[&](Remote& r) { r.key_file = server_.own() / "host_key"; }, ""},
        {[&](Remote& r) { r.key_file = "", wrong_password(r); }, ""}}},
      {"ftps", {{[](Remote& r) { r.ca_file = ""; }, ""}, {other_name, ""}}},
      {"ftp",
       {{[](Remote& r) { r.protocol = "ftps"; }, ""},  // no password without the TLS asked for
        {wrong_password, ""},
        {[&](Remote& r) { r.password_file = file("open", "let me in\n", 0644); }, "only its owner"},
        {[&](Remote& r) { r.password_file = file("empty", "\n"); }, "no password"},
        {lost_password, "missing"}}},
      {"webdav",
       {{wrong_password, "the password"},
        {lost_password, "missing"},
        {[](Remote& r) { r.ca_file = ""; }, "certificate"},
        {other_name, ""}}}};
  for (const auto& [protocol, changes] : cases) {
    SCOPED_TRACE(protocol);
    const bool tls = protocol == "webdav";
    if (!StartServer(protocol,
                     tls ? std::vector<std::string>{"--tls"} : std::vector<std::string>{}))
      continue;
    for (std::size_t i = 0; i < changes.size(); ++i) {
      SCOPED_TRACE(i);
      core::RemoteConfig remote = server_.remote();
      changes[i].change(remote);
      Use(remote);
      std::string err;
      EXPECT_FALSE(cloud_->Connect(&err));
      EXPECT_EQ(VLIBCErrGet(), core::kErrNotPermitted) << err;
      EXPECT_THAT(err, testing::AllOf(HasSubstr(changes[i].words), Not(HasSubstr("let me"))));
      EXPECT_FALSE(Upload("file", "x"));
      EXPECT_EQ(VLIBCErrGet(), core::kErrNotPermitted) << err;
      EXPECT_THAT(Names(), IsEmpty());
    }
    server_.Close();
  }
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

TEST_F(RefusalTest, AConnectionThatEndsInTheLoginIsNoRefusal) {
  if (geteuid() != 0) GTEST_SKIP() << "only root's server asks a program whom to let in";
  if (!server_.Start("sftp.py",
                     {"--root", folder_, "--option", "AuthorizedKeysCommand /usr/bin/sleep 99",
                      "--option", "AuthorizedKeysCommandUser root"})) {
    GTEST_SKIP() << "no SSH server can run here";
  }
  core::RemoteConfig remote = server_.remote();
  remote.key_file = server_.own() / "host_key";  // one that the server has to ask about
  Use(remote);
  std::thread breaker([this] { EndSessionsThatAsk("sleep"); });
  EXPECT_FALSE(cloud_->Connect(nullptr));
  breaker.join();
  EXPECT_EQ(VLIBCErrGet(), core::kErrHostDown);
}

}  // namespace
