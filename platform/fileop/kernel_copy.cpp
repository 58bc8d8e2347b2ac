#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "failure.h"
#include "transfer.h"

namespace fileop {
namespace {

Rung AfterRefusal(int err) {
  switch (err) {
    case EXDEV:
    case ENOSYS:
    case EOPNOTSUPP:
      return Rung::kNeverHere;
    case EINVAL:
    case EBADF:
    case EPERM:
    case ETXTBSY:
    case EOVERFLOW:
    case EISDIR:
      return Rung::kNotHere;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      Fail(err, Side::kDestination);
      return Rung::kFailed;
    default:
      // Reading and writing apart will tell which side fails.
      return Rung::kNotHere;
  }
}

// Less is not worth a system call of its own; more at once would keep a cancel waiting.
constexpr off_t kLeastReserved = 1 << 20;
constexpr off_t kMostReserved = 1 << 30;

// Has the destination's blocks up to the source's `end` laid out before the data comes. The
// size stays as it is, and what is refused here, the writes will tell.
off_t Reserve(const Transfer& transfer, off_t end) {
  const off_t count = std::min(end - transfer.position, kMostReserved);
  if (count >= kLeastReserved) {
    ::fallocate(transfer.dst, FALLOC_FL_KEEP_SIZE, transfer.position + transfer.shift, count);
  }
  return transfer.position + count;
}

Rung KernelRange(Transfer& transfer, off_t end) {
  off_t reserved = transfer.reserves ? transfer.position : kToTheEnd;
  while (transfer.position < end) {
    // What lies behind the expected end, if anything, a read has to tell.
    const off_t left = (end == kToTheEnd ? transfer.expected : end) - transfer.position;
    if (left <= 0) return Rung::kNotHere;
    const long long granted =
        transfer.pacer->Grant(std::min<long long>(left, transfer.pacer->piece()));
    if (granted < 0) return Rung::kFailed;
    if (transfer.position >= reserved) reserved = Reserve(transfer, transfer.position + left);
    const ssize_t moved = ::copy_file_range(transfer.src, nullptr, transfer.dst, nullptr,
                                            static_cast<std::size_t>(granted), 0);
    if (moved < 0) {
      if (errno == EINTR) continue;
      return AfterRefusal(errno);
    }
    // Some files answer 0 although they have data: only what a read finds counts.
    if (moved == 0) return Rung::kNotHere;
    transfer.position += moved;
    if (transfer.pacer->Moved(static_cast<unsigned long long>(moved)) < 0) return Rung::kFailed;
  }
  return Rung::kDone;
}

}  // namespace

Rung KernelCopy(Transfer& transfer) {
  if (!transfer.seekable) return Rung::kNotHere;
  return transfer.holes ? WalkExtents(transfer, KernelRange) : KernelRange(transfer, kToTheEnd);
}

}  // namespace fileop
