#include "core/error.h"

#include <cerrno>

namespace core {
namespace {

struct LastError {
  int code = kErrNone;
  ErrorPlace place{nullptr, 0};
};

thread_local LastError last_error;

}  // namespace

ErrorPlace LastErrorPlace() { return last_error.place; }

int ErrorFromErrno(int err) {
  switch (err) {
    case 0:
      return kErrNone;
    case EPERM:
    case EACCES:
    case EROFS:
      return kErrNotPermitted;
    case ENOENT:
      return kErrNotFound;
    // Callers tell "the file system has no such feature" from "this name
    // cannot be written in its character set" by errno.
    case EOPNOTSUPP:
    case EILSEQ:
      return kErrSeeErrno;
    case EINVAL:
      return kErrBadArgument;
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ENETDOWN:
    case ENETUNREACH:
    case ENETRESET:
    case ENOTCONN:
    case ECONNABORTED:
    case ECONNRESET:
    case ESHUTDOWN:
    case ESTALE:
    case ETIMEDOUT:
      return kErrHostDown;
    case ECONNREFUSED:
      return kErrCannotOpen;
    case EDQUOT:
      return kErrQuota;
    case ENOSPC:
      return kErrNoSpace;
    case EIO:
    case ENXIO:
    case EREMOTEIO:
      return kErrInputOutput;
    case ENOTDIR:
      return kErrFolderExpected;
    case EISDIR:
      return kErrFileExpected;
    case EEXIST:
    case ENOTEMPTY:
      return kErrExists;
    case EFBIG:
      return kErrTooLarge;
    case ELOOP:
      return kErrIllegalName;
    case ENAMETOOLONG:
      return kErrNameTooLong;
    default:
      return kErrSystem;
  }
}

}  // namespace core

int VLIBCErrGet() { return core::last_error.code; }

void VLIBCErrSetEx(int code, const char* file, int line) {
  core::last_error = {code, {file, line}};
}
