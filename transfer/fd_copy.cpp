#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "transfer/file_open.h"
#include "transfer/kept_error.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"

namespace Fennox {

int MVCPCopyFileFd(const char* src, const char* dst, long size, TAVOCopyProgress progress,
                   TAVOCopyCancel cancel, const _TAVOCOPYARGSEX* args) {
  const core::UniqueFd in = OpenSource(src);
  if (!in) {
    SetUnreachableError(928, 930);
    if (errno != ENOENT)
      LogError(933, "Failed to check [%s] [(%d)%s]", src, errno, std::strerror(errno));
    return -1;
  }
  core::UniqueFd out = OpenDestination(dst);
  if (!out) {
    SetUnreachableError(939, 941);
    LogError(943, "Failed to check [%s] [(%d)%s]", dst, errno, std::strerror(errno));
    return -1;
  }
  const int result = TAVOCopyFileFdEx(in.get(), out.get(), size, progress, cancel, args);
  out.reset();
  if (result < 0) {
    const KeptError keep;
    unlink(dst);
  }
  return result;
}

}  // namespace Fennox
