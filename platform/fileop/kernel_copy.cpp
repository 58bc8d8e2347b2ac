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

Rung KernelRange(Transfer& transfer, off_t end) {
  while (transfer.position < end) {
    // What lies behind the expected end, if anything, a read has to tell.
    const off_t left = (end == kToTheEnd ? transfer.expected : end) - transfer.position;
    if (left <= 0) return Rung::kNotHere;
    const long long granted =
        transfer.pacer->Grant(std::min<long long>(left, transfer.pacer->piece()));
    if (granted < 0) return Rung::kFailed;
    ReserveAhead(transfer, transfer.position + left);
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
