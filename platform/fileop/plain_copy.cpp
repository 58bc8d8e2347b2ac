#include <unistd.h>

#include <algorithm>

#include "core/aligned_buffer.h"
#include "failure.h"
#include "transfer.h"

namespace fileop {
namespace {

constexpr std::size_t kSmallBuffer = 128 * 1024;
// For large files: file systems take larger writes more cheaply, up to about here, where the
// processor's own cache ends.
constexpr std::size_t kLargeBuffer = 512 * 1024;

// The calling thread's buffer, one that fits the `size` of a file; lives as long as the thread.
const core::AlignedBuffer& BufferFor(long long size) {
  thread_local core::AlignedBuffer buffer;
  const std::size_t wanted =
      size > static_cast<long long>(kSmallBuffer) ? kLargeBuffer : kSmallBuffer;
  if (buffer.size() < wanted) buffer = core::AlignedBuffer(wanted);
  return buffer;
}

int WriteAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(fd, data, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      return Fail(errno, Side::kDestination);
    }
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return 0;
}

enum class End { kNotSeen, kSeen, kFailed };

// Moves `size` bytes, fewer only at the end of the source. With `probe` it asks
// for one byte more in the same call, which proves the end without another one.
End MovePiece(Transfer& transfer, long long size, bool probe, long long* moved) {
  const core::AlignedBuffer& buffer = BufferFor(transfer.expected);
  *moved = 0;
  while (*moved < size) {
    const auto left = static_cast<std::size_t>(size - *moved + (probe ? 1 : 0));
    const std::size_t want = std::min(buffer.size(), left);
    const ssize_t got = ::read(transfer.src, buffer.data(), want);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      Fail(errno, Side::kSource);
      return End::kFailed;
    }
    if (got == 0) return End::kSeen;
    if (WriteAll(transfer.dst, buffer.data(), static_cast<std::size_t>(got)) < 0) {
      return End::kFailed;
    }
    *moved += got;
    transfer.position += got;
    const bool short_read = static_cast<std::size_t>(got) < want;
    if (short_read && transfer.seekable && transfer.position == transfer.expected) {
      transfer.end_seen = true;
      return End::kSeen;
    }
  }
  return End::kNotSeen;
}

}  // namespace

Rung BufferRange(Transfer& transfer, off_t end) {
  while (transfer.position < end) {
    const off_t until = end == kToTheEnd ? transfer.expected : end;
    const off_t left = until - transfer.position;
    long long granted = static_cast<long long>(kSmallBuffer);
    // Behind the expected end there should be nothing to ask a budget for: the
    // read proves the end, or finds that the source has grown.
    if (left > 0)
      granted = transfer.pacer->Grant(std::min<long long>(left, transfer.pacer->piece()));
    if (granted < 0) return Rung::kFailed;
    if (left > 0) ReserveAhead(transfer, until);
    long long moved = 0;
    const bool probe = end == kToTheEnd && granted == left;
    const End seen = MovePiece(transfer, granted, probe, &moved);
    if (seen == End::kFailed) return Rung::kFailed;
    if (moved > 0 && transfer.pacer->Moved(static_cast<unsigned long long>(moved)) < 0) {
      return Rung::kFailed;
    }
    if (seen == End::kSeen) return Rung::kDone;
  }
  return Rung::kDone;
}

Rung WriteAhead(Transfer& transfer, std::string_view content) {
  while (!content.empty()) {
    const long long granted = transfer.pacer->Grant(static_cast<long long>(content.size()));
    if (granted < 0) return Rung::kFailed;
    const auto size = static_cast<std::size_t>(granted);
    if (WriteAll(transfer.dst, content.data(), size) < 0) return Rung::kFailed;
    transfer.position += granted;
    content.remove_prefix(size);
    if (transfer.pacer->Moved(size) < 0) return Rung::kFailed;
  }
  return Rung::kDone;
}

Rung PlainCopy(Transfer& transfer) { return BufferRange(transfer, kToTheEnd); }

}  // namespace fileop
