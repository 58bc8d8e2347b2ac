// Length-prefixed frames and descriptors over local sockets.
//
// A frame is four bytes of length, most significant first, and that many bytes
// of payload. Descriptors travel over message-keeping sockets (SOCK_SEQPACKET),
// one in each message.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "core/unique_fd.h"

namespace host {

// Larger requests and answers are refused before any memory is spent on them.
inline constexpr std::size_t kMaxRequestFrame = 64U << 20;
inline constexpr std::size_t kMaxAnswerFrame = 512U << 20;

enum class FrameStatus {
  kOk,
  kEnd,        // the peer closed before the first byte
  kTruncated,  // the peer closed inside a frame
  kTooLarge,   // the announced length exceeds the limit
  kTimeout,
  kError,  // errno tells why
};

// Sends one frame; `timeout_ms` is for the whole frame.
[[nodiscard]] FrameStatus SendFrame(int fd, std::string_view payload, int timeout_ms);

// Receives one frame of at most `limit` bytes of payload. Memory grows with what
// arrives, not with what the peer announces. `timeout_ms` is for the whole frame.
[[nodiscard]] FrameStatus ReceiveFrame(int fd, std::size_t limit, int timeout_ms,
                                       std::string* payload);

// What the peer is to do with the connection that a descriptor brings.
enum class Errand : char {
  kRequest = 'D',  // serve a call
  kLogin = 'L',    // check a password
  kFigures = 'F',  // count tasks
};

// Sends a copy of `fd` as one message. False with errno set.
[[nodiscard]] bool SendDescriptor(int socket, int fd, Errand errand = Errand::kRequest);

enum class DescriptorStatus {
  kOk,
  kEnd,        // the peer closed
  kMalformed,  // a message without exactly one descriptor; it was dropped
  kError,      // errno tells why (EAGAIN on an empty non-blocking socket)
};

// `errand` may be null for a socket that brings requests alone.
[[nodiscard]] DescriptorStatus ReceiveDescriptor(int socket, core::UniqueFd* out,
                                                 Errand* errand = nullptr);

// A connected pair of close-on-exec local sockets of `type`. False with errno set.
[[nodiscard]] bool MakeSocketPair(int type, core::UniqueFd* one, core::UniqueFd* other);

}  // namespace host
