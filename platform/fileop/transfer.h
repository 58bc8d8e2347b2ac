// One file's data on its way: what all rungs of the ladder share.
#pragma once

#include <sys/types.h>

#include <limits>
#include <string_view>

#include "pacer.h"

namespace fileop {

// The cursor is the descriptors' own offsets, so any rung goes on where the one
// before it stopped; `position` follows the source's.
struct Transfer {
  int src = -1;
  int dst = -1;
  off_t start = 0;        // source offset at the beginning
  off_t position = 0;     // source offset now
  off_t shift = 0;        // destination offset minus source offset
  off_t expected = 0;     // where the source was said to end
  bool seekable = false;  // both sides are regular files
  bool holes = false;     // the source has holes, and the destination can keep them
  bool reserves = false;  // blocks of the destination are cheaper asked for ahead
  off_t reserved = 0;     // source offset up to which they were
  bool end_seen = false;  // a read proved that the source ends at `position`
  Pacer* pacer = nullptr;
};

enum class Rung {
  kDone,       // moved up to the end of the source
  kNotHere,    // not this way, for this file
  kNeverHere,  // not this way, for this pair of file systems
  kFailed,     // the last error is set
};

constexpr off_t kToTheEnd = std::numeric_limits<off_t>::max();

// The rungs, best first.
Rung ShareBlocks(Transfer& transfer);  // FICLONE
Rung KernelCopy(Transfer& transfer);   // copy_file_range
Rung ExtentCopy(Transfer& transfer);   // read and write, around the holes
Rung PlainCopy(Transfer& transfer);    // read and write

// Writes a source that was read as a whole before its turn, to a destination that
// stands at its beginning. Nobody reads the source after that: its offset stays.
Rung WriteAhead(Transfer& transfer, std::string_view content);

// Calls `move` for each stretch of data from the cursor on, up to its end, and
// carries the holes between them over.
using RangeMover = Rung (*)(Transfer& transfer, off_t end);
Rung WalkExtents(Transfer& transfer, RangeMover move);

// Has the destination's blocks laid out before the data of a stretch up to the source's `end`
// comes, where that pays. The size stays as it is, and what is refused here, the writes tell.
void ReserveAhead(Transfer& transfer, off_t end);

// Moves bytes through a buffer until `end` or the end of the source.
Rung BufferRange(Transfer& transfer, off_t end);

}  // namespace fileop
