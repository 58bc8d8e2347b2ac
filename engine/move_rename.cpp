#include "engine/move_rename.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/error.h"
#include "webapi/log.h"

namespace Fennox {
namespace {

MoveResult Fail(int code, int line) {
  VLIBCErrSetEx(code, kModuleName, line);
  return MOVE_FAILED;
}

}  // namespace

MoveResult RenameFolder(const std::string& source, const std::string& destination) {
  const char* from = source.c_str();
  const char* to = destination.c_str();
  if (std::rename(from, to) == 0) return MOVE_DONE;
  switch (const int reason = errno; reason) {
    case EBUSY:
    case EEXIST:
    case EXDEV:
    case ENOTEMPTY:
      return MOVE_MUST_COPY;
    case EROFS:
    case EACCES:
    case EPERM:
      VLIBCErrSetEx(core::kErrNotPermitted, kModuleName, 1443);
      LogError(1444, "rename fail from(%s) to(%s) reason[(%d)%s]", from, to, reason,
               std::strerror(errno));
      return MOVE_FAILED;
    case ENOENT:
      VLIBCErrSetEx(core::kErrNotFound, kModuleName, 1447);
      LogError(1448, "rename fail from(%s) to(%s) reason[(%d)%s]", from, to, reason,
               std::strerror(errno));
      return MOVE_FAILED;
    default:
      VLIBCErrSetEx(core::kErrSystem, kModuleName, 1451);
      LogError(1452, "rename [%s] to [%s] fail reason[(%d)%s]", from, to, reason,
               std::strerror(errno));
      return MOVE_FAILED;
  }
}

MoveResult RenameFile(const std::string& source, const std::string& destination) {
  const char* from = source.c_str();
  const char* to = destination.c_str();
  if (std::rename(from, to) == 0) return MOVE_DONE;
  switch (const int reason = errno; reason) {
    case EXDEV:
      return MOVE_MUST_COPY;
    case EISDIR:
      return Fail(core::kErrFileExpected, 1381);
    case EROFS:
    case EACCES:
    case EPERM:
      return Fail(core::kErrNotPermitted, 1385);
    case ENOENT:
      return Fail(core::kErrNotFound, 1388);
    case ENAMETOOLONG:
      return Fail(core::kErrNameTooLong, 1391);
    case ENOSPC:
      return Fail(core::kErrNoSpace, 1394);
    default:
      LogError(1399, "rename [%s] to [%s] fail (%d)%s", from, to, reason, std::strerror(errno));
      return Fail(core::kErrSystem, 1400);
  }
}

}  // namespace Fennox
