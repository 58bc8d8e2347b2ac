// How failures travel inside the library: errno plus the core code, and which
// side of a copy failed.
#pragma once

#include <cerrno>

namespace fileop {

enum class Side { kUnknown, kSource, kDestination };

// One failure, kept while other work goes on.
struct Failure {
  int code = 0;  // core code; 0: none
  int err = 0;   // errno
  Side side = Side::kUnknown;

  explicit operator bool() const { return code != 0; }
};

// Sets the last error that fits `err`, leaves errno at `err`, returns -1.
int Fail(int err, Side side, int line = __builtin_LINE());

// The same with a core code that errno alone does not tell.
int FailWith(int code, int err, Side side, int line = __builtin_LINE());

// The calling thread's latest failure, as Fail left it.
Failure LatestFailure();

// Makes `failure` the latest one again and returns -1.
int Report(const Failure& failure);

// Forgets code, errno and side, so that what a hook leaves can be told apart
// from what was there before.
void ClearFailure();

// Undoes ClearFailure after success: `code` was the last error before.
void RestoreCode(int code);

// Failures after which nothing more can succeed at the destination, or after
// which the caller wants no more.
bool StopsEverything(const Failure& failure);

}  // namespace fileop
