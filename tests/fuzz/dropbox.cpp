// The answers of Dropbox's service, from the bytes on the wire to their meaning. A
// server of our own lets everybody log in and then gives the input as its answer.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <thread>

#include "core/unique_fd.h"
#include "dropbox_failure.h"
#include "fuzz.h"

namespace fuzz {
namespace {

constexpr std::string_view kLogin =
    "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 20\r\n\r\n{\"access_token\":\"t\"}";

class Server {
 public:
  Server() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    Require(bind(listener_.get(), plain, size) == 0 && listen(listener_.get(), 4) == 0 &&
                getsockname(listener_.get(), plain, &size) == 0,
            "a server can listen");
    port_ = ntohs(address.sin_port);
  }

  int port() const { return port_; }

  // The answer to all but logins, from now on.
  void AnswerWith(std::string_view answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answer_ = answer;
  }

  [[noreturn]] void ServeForEver() {
    for (;;) ServeOne();
  }

 private:
  std::string Answer() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return answer_;
  }

  void ServeOne() {
    const core::UniqueFd peer(accept(listener_.get(), nullptr, nullptr));
    // Closing resets, so that thousands of connections leave no ports behind.
    const linger reset{1, 0};
    const timeval patience{1, 0};
    setsockopt(peer.get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    setsockopt(peer.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    char buffer[4096];
    std::string request;
    while (!request.ends_with("client_id=k") && !request.ends_with("{}")) {
      const ssize_t got = recv(peer.get(), buffer, sizeof buffer, 0);
      if (got <= 0) return;
      request.append(buffer, static_cast<std::size_t>(got));
    }
    const std::string answer = request.back() == 'k' ? std::string(kLogin) : Answer();
    (void)send(peer.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
    shutdown(peer.get(), SHUT_WR);
    while (recv(peer.get(), buffer, sizeof buffer, 0) > 0) {
    }
  }

  core::UniqueFd listener_;
  std::mutex mutex_;
  std::string answer_;
  int port_ = 0;
};

core::RemoteConfig Remote(int port) {
  core::RemoteConfig remote;
  remote.host = "127.0.0.1";
  remote.port = port;
  remote.token_file = Folder() + "/token";
  Write(remote.token_file, R"({"refresh_token":"r","app_key":"k"})");
  chmod(remote.token_file.c_str(), 0600);
  return remote;
}

}  // namespace

void Fuzz(std::string_view input) {
  static Server& server = *new Server;  // its thread uses it to the end
  static const core::RemoteConfig remote = [] {
    std::thread([] { server.ServeForEver(); }).detach();
    return Remote(server.port());
  }();
  const std::string text(input);
  (void)TAVOCloud::ReadJson(text);
  server.AnswerWith(text);
  TAVOCloud::DropboxApi api(remote);
  const auto answer = api.Ask("files/get_metadata", Json::Value(Json::objectValue));
  if (answer.Succeeded()) return;
  Require(TAVOCloud::ExplainDropbox(answer).system != 0, "a failure has a cause");
  Require(!TAVOCloud::WordsOf(answer).empty(), "a failure has words");
}

}  // namespace fuzz
