// One client's connection, with a bound on everything that it may make the server wait for.
#pragma once

#include <httplib.h>
#include <openssl/ssl.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <string>

#include "core/unique_fd.h"

namespace host {

struct ConnectionLimits {
  std::chrono::milliseconds idle{5000};    // between two requests
  std::chrono::milliseconds head{15000};   // for a request's head, from its first byte
  std::chrono::milliseconds body{60000};   // for its body
  std::chrono::milliseconds write{30000};  // without the client taking a byte of the answer
  std::size_t head_bytes = 64U << 10;
};

// Every request has one time for its head and one for its body, however they are
// dribbled in. What is too slow or too long is answered here, with 408 or 431, and then
// the connection neither reads nor writes any more. For one thread.
class Connection : public httplib::Stream {
 public:
  // Takes the socket. `tls`: null for plain HTTP.
  Connection(core::UniqueFd socket, SSL_CTX* tls, const ConnectionLimits& limits);
  ~Connection() override;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // For TLS. False when the peer does not speak it, or too slowly.
  [[nodiscard]] bool Greet();

  // Waits for the next request's first byte; its head's time starts then. False when
  // there is none.
  [[nodiscard]] bool AwaitRequest();

  // The head is read; the body's time starts.
  void HeadIsRead();

  bool is_readable() const override;
  bool is_writable() const override;
  ssize_t read(char* to, std::size_t size) override;
  ssize_t write(const char* from, std::size_t size) override;
  using httplib::Stream::write;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return socket_.get(); }

 private:
  using Clock = std::chrono::steady_clock;
  enum class Phase { kHead, kBody, kBroken };

  ssize_t Receive(Clock::time_point deadline);
  ssize_t SendSome(const char* from, std::size_t size, Clock::time_point deadline);
  // Waits for what the last call lacked. False at the deadline and on errors.
  bool WaitAfter(int result, short events, Clock::time_point deadline) const;
  void GiveUp(int status, const char* reason, const char* message);

  core::UniqueFd socket_;
  SSL* ssl_ = nullptr;
  ConnectionLimits limits_;
  Phase phase_ = Phase::kHead;
  Clock::time_point deadline_;
  std::size_t head_left_ = 0;
  // The library reads heads byte by byte.
  std::array<char, 16384> buffer_{};
  std::size_t from_ = 0;
  std::size_t filled_ = 0;
};

}  // namespace host
