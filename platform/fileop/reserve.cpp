#include <fcntl.h>

#include <algorithm>

#include "transfer.h"

namespace fileop {
namespace {

// Less is not worth a system call of its own; more at once would keep a cancel waiting.
constexpr off_t kLeastReserved = 1 << 20;
constexpr off_t kMostReserved = 1 << 30;

}  // namespace

void ReserveAhead(Transfer& transfer, off_t end) {
  if (!transfer.reserves || transfer.position < transfer.reserved) return;
  const off_t count = std::min(end - transfer.position, kMostReserved);
  if (count >= kLeastReserved) {
    ::fallocate(transfer.dst, FALLOC_FL_KEEP_SIZE, transfer.position + transfer.shift, count);
  }
  transfer.reserved = transfer.position + count;
}

}  // namespace fileop
