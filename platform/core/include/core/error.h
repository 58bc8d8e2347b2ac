// Last error of the core library.
//
// Every platform library reports why an operation failed as one integer code
// that is kept per thread. The code belongs to the latest failed operation;
// a successful operation leaves it alone.
#pragma once

namespace core {

// Error codes with a name of their own. Other values may be set by callers.
enum ErrorCode : int {
  kErrNone = 0,
  kErrNotPermitted = 0x0300,  // EPERM, EACCES, EROFS
  kErrNotFound = 0x0700,      // ENOENT
  kErrSeeErrno = 0x0800,      // errno alone tells the reason (EOPNOTSUPP, EILSEQ)
  kErrCannotOpen = 0x0900,    // an open failed for a reason without a code of its own; ECONNREFUSED
  kErrBadArgument = 0x0D00,   // EINVAL by the caller
  kErrHostDown = 0x1100,      // EHOSTDOWN and other lost-peer errors
  kErrQuota = 0x2400,         // EDQUOT
  kErrNoSpace = 0x2900,       // ENOSPC
  kErrInputOutput = 0x6C00,   // EIO, ENXIO, EREMOTEIO
  kErrSystem = 0x8000,        // any other failed system call
  kErrFolderExpected = 0xA000,  // a file stands where a folder must be
  kErrFileExpected = 0xA200,    // a folder stands where a file must be
  kErrExists = 0xA300,          // EEXIST under the policy "report the conflict"; ENOTEMPTY
  kErrTooLarge = 0xA400,        // EFBIG
  kErrIllegalName = 0xBE00,     // ELOOP, a path that may not be used
  kErrNameTooLong = 0xC300,     // ENAMETOOLONG
  kErrNoRight = 0xD100,         // refused by the server's own rules
};

// Where the current code was set. `file` is the pointer that the setter gave.
struct ErrorPlace {
  const char* file;
  int line;
};

// Place of the calling thread's last error; {nullptr, 0} before the first one.
ErrorPlace LastErrorPlace();

// The one table from errno to a core code. Never returns kErrNone for a
// non-zero errno; unknown values give kErrSystem.
int ErrorFromErrno(int err);

}  // namespace core

// The calling thread's last error code; 0 before the first failure.
int VLIBCErrGet();

// Sets the calling thread's last error. `file` must outlive the thread (a
// string literal). Never changes errno.
void VLIBCErrSetEx(int code, const char* file, int line);
