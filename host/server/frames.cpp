#include "frames.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <vector>

namespace host {
namespace {

constexpr std::size_t kHeader = 4;
constexpr std::size_t kGrowth = 256U << 10;

class Deadline {
 public:
  explicit Deadline(int timeout_ms)
      : end_(std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms)) {}

  int LeftMs() const {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end_ - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
  }

 private:
  std::chrono::steady_clock::time_point end_;
};

FrameStatus WaitFor(int fd, short events, const Deadline& deadline) {
  pollfd poller{fd, events, 0};
  while (true) {
    const int ready = ::poll(&poller, 1, deadline.LeftMs());
    if (ready > 0) return FrameStatus::kOk;
    if (ready == 0) return FrameStatus::kTimeout;
    if (errno != EINTR) return FrameStatus::kError;
  }
}

// Fills `size` bytes. kEnd when the peer closed before the first of them.
FrameStatus ReceiveBytes(int fd, char* to, std::size_t size, const Deadline& deadline) {
  std::size_t got = 0;
  while (got < size) {
    const ssize_t n = ::recv(fd, to + got, size - got, MSG_DONTWAIT);
    if (n > 0) {
      got += static_cast<std::size_t>(n);
    } else if (n == 0 || errno == ECONNRESET) {
      return got == 0 ? FrameStatus::kEnd : FrameStatus::kTruncated;
    } else if (errno == EAGAIN) {
      if (const auto status = WaitFor(fd, POLLIN, deadline); status != FrameStatus::kOk) {
        return status;
      }
    } else if (errno != EINTR) {
      return FrameStatus::kError;
    }
  }
  return FrameStatus::kOk;
}

std::array<char, kHeader> HeaderFor(std::size_t size) {
  return {static_cast<char>(size >> 24), static_cast<char>(size >> 16),
          static_cast<char>(size >> 8), static_cast<char>(size)};
}

std::size_t SizeFrom(const std::array<char, kHeader>& header) {
  std::size_t size = 0;
  for (const char byte : header) size = size << 8 | static_cast<unsigned char>(byte);
  return size;
}

// Advances the two parts by `sent` bytes.
void Advance(std::array<iovec, 2>* parts, std::size_t sent) {
  for (iovec& part : *parts) {
    const std::size_t step = std::min(sent, part.iov_len);
    part.iov_base = static_cast<char*>(part.iov_base) + step;
    part.iov_len -= step;
    sent -= step;
  }
}

}  // namespace

FrameStatus SendFrame(int fd, std::string_view payload, int timeout_ms) {
  if (payload.size() > UINT32_MAX) return FrameStatus::kTooLarge;
  const Deadline deadline(timeout_ms);
  auto header = HeaderFor(payload.size());
  // sendmsg only reads from the buffers.
  std::array<iovec, 2> parts{iovec{header.data(), header.size()},
                             iovec{const_cast<char*>(payload.data()), payload.size()}};
  while (parts[0].iov_len + parts[1].iov_len > 0) {
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    const ssize_t n = ::sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0) {
      Advance(&parts, static_cast<std::size_t>(n));
    } else if (errno == EAGAIN) {
      if (const auto status = WaitFor(fd, POLLOUT, deadline); status != FrameStatus::kOk) {
        return status;
      }
    } else if (errno != EINTR) {
      return errno == EPIPE ? FrameStatus::kEnd : FrameStatus::kError;
    }
  }
  return FrameStatus::kOk;
}

FrameStatus ReceiveFrame(int fd, std::size_t limit, int timeout_ms, std::string* payload) {
  payload->clear();
  const Deadline deadline(timeout_ms);
  std::array<char, kHeader> header{};
  auto status = ReceiveBytes(fd, header.data(), header.size(), deadline);
  if (status != FrameStatus::kOk) return status;
  const std::size_t size = SizeFrom(header);
  if (size > limit) return FrameStatus::kTooLarge;
  while (payload->size() < size) {
    const std::size_t have = payload->size();
    // Doubling keeps the number of copies low; the cap keeps a lie cheap.
    payload->resize(std::min(size, std::max(have * 2, have + kGrowth)));
    status = ReceiveBytes(fd, payload->data() + have, payload->size() - have, deadline);
    if (status != FrameStatus::kOk) {
      payload->clear();
      return status == FrameStatus::kEnd ? FrameStatus::kTruncated : status;
    }
  }
  return FrameStatus::kOk;
}

bool SendDescriptor(int socket, int fd, Errand errand) {
  char byte = static_cast<char>(errand);
  iovec part{&byte, 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* rights = CMSG_FIRSTHDR(&message);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(rights), &fd, sizeof(int));
  ssize_t n = 0;
  do {
    n = ::sendmsg(socket, &message, MSG_NOSIGNAL);
  } while (n < 0 && errno == EINTR);
  return n == 1;
}

DescriptorStatus ReceiveDescriptor(int socket, core::UniqueFd* out, Errand* errand) {
  constexpr std::size_t kMaxDescriptors = 8;
  char byte = 0;
  iovec part{&byte, 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int) * kMaxDescriptors)> control{};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  const ssize_t n = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
  if (n < 0) return DescriptorStatus::kError;

  std::vector<core::UniqueFd> received;
  for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
    if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int fd = -1;
      std::memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
      received.emplace_back(fd);
    }
  }
  if (n == 0 && received.empty()) {
    // An empty message looks like the end; only the end hangs up.
    pollfd poller{socket, POLLRDHUP, 0};
    const bool closed = ::poll(&poller, 1, 0) > 0 && (poller.revents & (POLLHUP | POLLRDHUP)) != 0;
    return closed ? DescriptorStatus::kEnd : DescriptorStatus::kMalformed;
  }
  if (received.size() != 1 || (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0) {
    return DescriptorStatus::kMalformed;
  }
  *out = std::move(received.front());
  if (errand != nullptr) *errand = static_cast<Errand>(byte);
  return DescriptorStatus::kOk;
}

bool MakeSocketPair(int type, core::UniqueFd* one, core::UniqueFd* other) {
  std::array<int, 2> pair{-1, -1};
  if (::socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, pair.data()) != 0) return false;
  one->reset(pair[0]);
  other->reset(pair[1]);
  return true;
}

}  // namespace host
