#include "connection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "envelope.h"
#include "support/errors.h"

namespace host {
namespace {

using SteadyTime = std::chrono::steady_clock::time_point;

// False at the deadline and on errors.
bool WaitFor(int fd, short events, SteadyTime deadline) {
  pollfd poller{fd, events, 0};
  while (true) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    const int ready =
        ::poll(&poller, 1, static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT_MAX)));
    if (ready > 0) return true;
    if (ready == 0 || errno != EINTR) return false;
  }
}

void NameOf(const sockaddr_storage& address, std::string& ip, int& port) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const void* bytes = nullptr;
  if (address.ss_family == AF_INET6) {
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
    bytes = &v6.sin6_addr;
    port = ntohs(v6.sin6_port);
  } else {
    const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
    bytes = &v4.sin_addr;
    port = ntohs(v4.sin_port);
  }
  if (::inet_ntop(address.ss_family, bytes, text.data(), text.size()) != nullptr) ip = text.data();
}

}  // namespace

Connection::Connection(core::UniqueFd socket, SSL_CTX* tls, const ConnectionLimits& limits)
    : socket_(std::move(socket)), limits_(limits) {
  ::fcntl(socket_.get(), F_SETFL, ::fcntl(socket_.get(), F_GETFL) | O_NONBLOCK);
  if (tls == nullptr) return;
  ssl_ = ::SSL_new(tls);
  if (ssl_ == nullptr || ::SSL_set_fd(ssl_, socket_.get()) != 1) phase_ = Phase::kBroken;
}

Connection::~Connection() {
  if (ssl_ != nullptr) {
    // One try; a peer that does not take it learns from the connection's end.
    if (phase_ != Phase::kBroken) ::SSL_shutdown(ssl_);
    ::SSL_free(ssl_);
  }
  ::shutdown(socket_.get(), SHUT_RDWR);
}

bool Connection::WaitAfter(int result, short events, Clock::time_point deadline) const {
  if (ssl_ == nullptr) return errno == EINTR || WaitFor(socket_.get(), events, deadline);
  switch (::SSL_get_error(ssl_, result)) {
    case SSL_ERROR_WANT_READ:
      return WaitFor(socket_.get(), POLLIN, deadline);
    case SSL_ERROR_WANT_WRITE:
      return WaitFor(socket_.get(), POLLOUT, deadline);
    default:
      return false;
  }
}

bool Connection::Greet() {
  if (ssl_ == nullptr) return true;
  const auto deadline = Clock::now() + limits_.head;
  while (phase_ != Phase::kBroken) {
    const int result = ::SSL_accept(ssl_);
    if (result == 1) return true;
    if (!WaitAfter(result, POLLIN, deadline)) phase_ = Phase::kBroken;
  }
  return false;
}

bool Connection::AwaitRequest() {
  if (phase_ == Phase::kBroken) return false;
  const bool there = from_ < filled_ || (ssl_ != nullptr && ::SSL_pending(ssl_) > 0) ||
                     WaitFor(socket_.get(), POLLIN, Clock::now() + limits_.idle);
  phase_ = Phase::kHead;
  deadline_ = Clock::now() + limits_.head;
  head_left_ = limits_.head_bytes;
  return there;
}

void Connection::HeadIsRead() {
  if (phase_ == Phase::kBroken) return;
  phase_ = Phase::kBody;
  deadline_ = Clock::now() + limits_.body;
}

// One read into the empty buffer; 0 at the end, negative on errors and at the deadline.
ssize_t Connection::Receive(Clock::time_point deadline) {
  while (true) {
    const ssize_t got = ssl_ != nullptr
                            ? ::SSL_read(ssl_, buffer_.data(), static_cast<int>(buffer_.size()))
                            : ::recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    if (got > 0) return got;
    if (ssl_ == nullptr && (got == 0 || (errno != EAGAIN && errno != EINTR))) return got;
    if (ssl_ != nullptr && ::SSL_get_error(ssl_, static_cast<int>(got)) == SSL_ERROR_ZERO_RETURN) {
      return 0;
    }
    errno = ssl_ == nullptr ? errno : 0;
    if (!WaitAfter(static_cast<int>(got), POLLIN, deadline)) {
      if (Clock::now() >= deadline) errno = ETIMEDOUT;
      return -1;
    }
  }
}

ssize_t Connection::read(char* to, std::size_t size) {
  if (phase_ == Phase::kBroken) return -1;
  if (from_ == filled_) {
    from_ = filled_ = 0;
    // A peer that always has a byte more never makes a read wait.
    if (Clock::now() >= deadline_) {
      GiveUp(408, "Request Timeout", "the request came too slowly");
      return -1;
    }
    const ssize_t got = Receive(deadline_);
    if (got < 0 && errno == ETIMEDOUT) {
      GiveUp(408, "Request Timeout", "the request came too slowly");
    }
    if (got <= 0) return got;
    filled_ = static_cast<std::size_t>(got);
  }
  std::size_t count = std::min(size, filled_ - from_);
  if (phase_ == Phase::kHead) {
    if (head_left_ == 0) {
      GiveUp(431, "Request Header Fields Too Large", "the request's head is too long");
      return -1;
    }
    count = std::min(count, head_left_);
    head_left_ -= count;
  }
  std::memcpy(to, buffer_.data() + from_, count);
  from_ += count;
  return static_cast<ssize_t>(count);
}

ssize_t Connection::SendSome(const char* from, std::size_t size, Clock::time_point deadline) {
  const int chunk = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
  while (true) {
    const ssize_t put = ssl_ != nullptr
                            ? ::SSL_write(ssl_, from, chunk)
                            : ::send(socket_.get(), from, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (put > 0) return put;
    if (ssl_ == nullptr && errno != EAGAIN && errno != EINTR) return -1;
    if (!WaitAfter(static_cast<int>(put), POLLOUT, deadline)) return -1;
  }
}

ssize_t Connection::write(const char* from, std::size_t size) {
  if (phase_ == Phase::kBroken) return -1;
  if (size == 0) return 0;
  return SendSome(from, size, Clock::now() + limits_.write);
}

void Connection::GiveUp(int status, const char* reason, const char* message) {
  const std::string body = FailureWords(WEBFM_BAD_PARAMETER, message);
  const std::string text = "HTTP/1.1 " + std::to_string(status) + " " + reason +
                           "\r\nContent-Type: application/json\r\nConnection: close\r\n"
                           "Content-Length: " +
                           std::to_string(body.size()) + "\r\n\r\n" + body;
  // A peer that is slow to take even this gets none of it.
  static_cast<void>(SendSome(text.data(), text.size(), Clock::now()));
  phase_ = Phase::kBroken;
}

bool Connection::is_readable() const {
  return from_ < filled_ || (phase_ != Phase::kBroken && WaitFor(socket_.get(), POLLIN, deadline_));
}

bool Connection::is_writable() const {
  return phase_ != Phase::kBroken && WaitFor(socket_.get(), POLLOUT, Clock::now() + limits_.write);
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (::getpeername(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size) == 0) {
    NameOf(address, ip, port);
  }
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size) == 0) {
    NameOf(address, ip, port);
  }
}

}  // namespace host
