#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "failure.h"
#include "transfer.h"

namespace fileop {
namespace {

enum class Step { kData, kEnd, kUnknown, kFailed };

// Finds the next stretch of data at or behind the cursor.
Step NextData(const Transfer& transfer, off_t* begin, off_t* end) {
  *begin = ::lseek(transfer.src, transfer.position, SEEK_DATA);
  if (*begin < 0) {
    if (errno == ENXIO) return Step::kEnd;
    return errno == EINVAL || errno == EOPNOTSUPP ? Step::kUnknown : Step::kFailed;
  }
  *end = ::lseek(transfer.src, *begin, SEEK_HOLE);
  if (*end >= 0) return Step::kData;
  // Truncated between the two questions.
  return errno == ENXIO ? Step::kEnd : Step::kFailed;
}

// Moves both offsets to `position` without moving data.
int SkipTo(Transfer& transfer, off_t position) {
  if (::lseek(transfer.src, position, SEEK_SET) < 0) return Fail(errno, Side::kSource);
  if (::lseek(transfer.dst, position + transfer.shift, SEEK_SET) < 0) {
    return Fail(errno, Side::kDestination);
  }
  const off_t hole = position - transfer.position;
  transfer.position = position;
  return hole > 0 ? transfer.pacer->Moved(static_cast<unsigned long long>(hole)) : 0;
}

// Gives the destination the size that it shall have at the cursor `position` of the source.
Rung Resize(const Transfer& transfer, off_t position) {
  if (::ftruncate(transfer.dst, position + transfer.shift) == 0) return Rung::kDone;
  Fail(errno, Side::kDestination);
  return Rung::kFailed;
}

// The hole that a file ends with. `sized`: the destination has its size already.
Rung KeepTail(Transfer& transfer, bool sized) {
  struct stat st;
  if (::fstat(transfer.src, &st) != 0) {
    Fail(errno, Side::kSource);
    return Rung::kFailed;
  }
  const bool tail = st.st_size > transfer.position;
  const off_t end = tail ? st.st_size : transfer.position;
  // XFS takes a size that is set again for a cut, and writes the file out at its closing.
  const bool right = sized && end == transfer.expected;
  if ((tail || sized) && !right && Resize(transfer, end) == Rung::kFailed) return Rung::kFailed;
  return tail && SkipTo(transfer, end) < 0 ? Rung::kFailed : Rung::kDone;
}

}  // namespace

Rung WalkExtents(Transfer& transfer, RangeMover move) {
  // A file that grows with each extent is given blocks ahead, which then lie in its holes.
  // Some mounts cannot do this, and need not.
  const bool sized = ::ftruncate(transfer.dst, transfer.expected + transfer.shift) == 0;
  for (;;) {
    off_t begin = 0;
    off_t end = 0;
    switch (NextData(transfer, &begin, &end)) {
      case Step::kEnd:
        return KeepTail(transfer, sized);
      case Step::kUnknown:
        ::lseek(transfer.src, transfer.position, SEEK_SET);
        return Rung::kNotHere;
      case Step::kFailed:
        Fail(errno, Side::kSource);
        return Rung::kFailed;
      case Step::kData:
        break;
    }
    if (SkipTo(transfer, begin) < 0) return Rung::kFailed;
    const Rung moved = move(transfer, end);
    if (moved != Rung::kDone) return moved;
    // The source ends before its extent did: it was cut meanwhile.
    if (transfer.position < end) return sized ? Resize(transfer, transfer.position) : Rung::kDone;
  }
}

Rung ExtentCopy(Transfer& transfer) {
  if (!transfer.holes) return Rung::kNotHere;
  return WalkExtents(transfer, BufferRange);
}

}  // namespace fileop
