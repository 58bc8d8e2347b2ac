#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "failure.h"
#include "transfer.h"

namespace fileop {

Rung ShareBlocks(Transfer& transfer) {
  if (!transfer.seekable || transfer.position != 0 || transfer.shift != 0) return Rung::kNotHere;
  if (transfer.pacer->CheckCancel() < 0) return Rung::kFailed;
  if (::ioctl(transfer.dst, FICLONE, transfer.src) != 0) {
    switch (errno) {
      case EOPNOTSUPP:
      case ENOTTY:
      case ENOSYS:
      case EXDEV:
        return Rung::kNeverHere;
      case ENOSPC:
      case EDQUOT:
        Fail(errno, Side::kDestination);
        return Rung::kFailed;
      default:
        return Rung::kNotHere;
    }
  }
  struct stat st;
  if (::fstat(transfer.dst, &st) != 0) {
    Fail(errno, Side::kDestination);
    return Rung::kFailed;
  }
  transfer.position = st.st_size;
  if (::lseek(transfer.src, st.st_size, SEEK_SET) < 0 ||
      ::lseek(transfer.dst, st.st_size, SEEK_SET) < 0) {
    Fail(errno, Side::kUnknown);
    return Rung::kFailed;
  }
  const int moved = transfer.pacer->Moved(static_cast<unsigned long long>(st.st_size));
  return moved < 0 ? Rung::kFailed : Rung::kDone;
}

}  // namespace fileop
