#include "transfer/file_open.h"

#include <fcntl.h>

#include <cerrno>

#include "core/error.h"
#include "webapi/log.h"

namespace Fennox {

core::UniqueFd OpenSource(const char* path) {
  return core::UniqueFd(open(path, O_RDONLY | O_CLOEXEC, 0644));
}

core::UniqueFd OpenDestination(const char* path) {
  return core::UniqueFd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kCopyMode));
}

bool SetUnreachableError(int hostDownLine, int inputOutputLine) {
  switch (errno) {
    case EHOSTDOWN:
      VLIBCErrSetEx(core::kErrHostDown, kModuleName, hostDownLine);
      return true;
    case EIO:
    case ENXIO:
      VLIBCErrSetEx(core::kErrInputOutput, kModuleName, inputOutputLine);
      return true;
    default:
      return false;
  }
}

}  // namespace Fennox
