// Progress, cancel and the read-size hook while one file's data moves.
#pragma once

#include <cstdint>

#include "fileop/copy.h"

namespace fileop {

class Pacer {
 public:
  Pacer(TAVOCopyProgress progress, TAVOCopyCancel cancel, TAVOReadSizeHook read_size)
      : progress_(progress), cancel_(cancel), read_size_(read_size) {}

  // How many bytes the next read may take, at most `want` (more than 0). Waits
  // while the hook has nothing to give. Negative when the copy shall stop:
  // cancelled, or aborted by the hook; the last error is set.
  long long Grant(long long want);

  // Tells that bytes were moved. Negative as above.
  int Moved(unsigned long long bytes);

  // Cancelled yet? Negative as above.
  int CheckCancel() const;

  // A piece small enough to be moved well within a tenth of a second.
  long long piece() const { return piece_; }

 private:
  void AdaptPiece(unsigned long long moved);

  TAVOCopyProgress progress_;
  TAVOCopyCancel cancel_;
  TAVOReadSizeHook read_size_;
  long long piece_ = 1 << 20;
  std::int64_t granted_at_ = 0;
};

}  // namespace fileop
