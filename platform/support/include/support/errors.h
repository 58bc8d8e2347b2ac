// Web-API error codes and how other errors become one.
#pragma once

#include <string>
#include <vector>

// Codes that reach clients. One table gives each a name and an English text.
// The values below are used by the module or chosen by this library; the
// module may hold other integers in a WEBFMERR.
enum WEBFMERR : int {
  WEBFM_OK = 0,
  WEBFM_UNKNOWN_METHOD = 101,
  WEBFM_BAD_PARAMETER = 400,
  WEBFM_FAILED = 401,  // unclassified failure
  WEBFM_NO_PERMISSION = 407,
  WEBFM_MOUNT_LOST = 410,  // network file system does not answer
  WEBFM_QUOTA_EXCEEDED = 415,
  WEBFM_ILLEGAL_NAME = 418,
  WEBFM_NOT_SUPPORTED = 422,  // the file system or the server refuses the operation
  WEBFM_MOUNT_GONE = 451,
  WEBFM_NOT_FOUND = 460,
  WEBFM_READ_ONLY = 461,
  WEBFM_NAME_TOO_LONG = 462,
  WEBFM_NO_SPACE = 463,
  WEBFM_IO_ERROR = 464,
  WEBFM_NOT_A_FOLDER = 465,
  WEBFM_NOT_A_FILE = 466,
  WEBFM_BUSY = 467,
  WEBFM_TOO_MANY_LINKS = 468,  // a link loop, or too many open files
  WEBFM_UNKNOWN_USER = 469,
  WEBFM_NO_SHARE = 470,  // no such share
  WEBFM_OUT_OF_MEMORY = 471,
  WEBFM_CANCELLED = 472,
  WEBFM_WORKER_DIED = 480,  // the worker ended without finishing its task
  WEBFM_NO_SUCH_TASK = 599,
  WEBFM_COPY_FAILED = 1000,
  WEBFM_MOVE_FAILED = 1001,
  WEBFM_DEST_FAILED = 1002,
  WEBFM_CONFLICT = 1003,
  WEBFM_TYPE_CONFLICT = 1004,  // a file against a folder
  WEBFM_BAD_FILE_NAME = 1006,
  WEBFM_FILE_TOO_BIG = 1007,
  WEBFM_REMOTE_UNREACHABLE = 2109,
  WEBFM_REMOTE_IO = 2114,
  WEBFM_REMOTE_REFUSED = 2115,
  WEBFM_REMOTE_TOO_LARGE = 2116,
  WEBFM_REMOTE_BAD_NAME = 2119,
};

// The library's last error, per thread: a WEBFMERR of the latest failed call.
int WfmLibGetErr();

// Code for an errno met while working on the two paths (either may be null).
int WfmParseErrnoToError(int err, const char* path, const char* path2);

// General code for a core-library error. `destParam` is the destination's share
// part, `destFolder` its real path; either may be null or empty.
int WfmParseTavoErrToError(int coreError, const char* destParam, const char* destFolder);

// Key of the front end's text for a code, "error:NAME". `flags` is 0.
std::string WfmParseErrorToKVXString(int code, int flags);

namespace support {

void SetErr(int code);

// Name and English text of a code; "unknown" names for codes not in the table.
const char* ErrorName(int code);
const char* ErrorText(int code);

// The codes of the table, in its order.
std::vector<int> ErrorCodes();

}  // namespace support
