#include "failure.h"

#include "core/error.h"

namespace fileop {
namespace {

thread_local Side latest_side = Side::kUnknown;

}  // namespace

int FailWith(int code, int err, Side side, int line) {
  VLIBCErrSetEx(code, "fileop", line);
  latest_side = side;
  errno = err;
  return -1;
}

int Fail(int err, Side side, int line) {
  return FailWith(core::ErrorFromErrno(err), err, side, line);
}

Failure LatestFailure() {
  const int err = errno;
  int code = VLIBCErrGet();
  if (code == core::kErrNone) code = err != 0 ? core::ErrorFromErrno(err) : core::kErrSystem;
  return {code, err, latest_side};
}

int Report(const Failure& failure) { return FailWith(failure.code, failure.err, failure.side); }

void ClearFailure() {
  VLIBCErrSetEx(core::kErrNone, "fileop", __LINE__);
  latest_side = Side::kUnknown;
  errno = 0;
}

void RestoreCode(int code) { VLIBCErrSetEx(code, "fileop", __LINE__); }

bool StopsEverything(const Failure& failure) {
  switch (failure.err) {
    case ECANCELED:
    case ENOSPC:
    case EDQUOT:
      return true;
    case EIO:
    case ESTALE:
    case ENOTCONN:
    case ENODEV:
    case EHOSTDOWN:
      return failure.side == Side::kDestination;
    default:
      return false;
  }
}

}  // namespace fileop
