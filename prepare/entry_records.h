// Records that travel through the worker from validation to post-processing.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "support/path_info.h"

namespace Fennox {

enum _tag_action_type_ : int {
  ACTION_MOVE = 1,
  ACTION_COPY = 2,
};

// What to do when an entry's destination exists (an entry's or the request's
// `overwriteMode`).
enum ConflictMode : int {
  CONFLICT_ERROR = 0,
  CONFLICT_SKIP = 1,
  CONFLICT_RENAME = 2,
  CONFLICT_OVERWRITE = 3,
};

// Outcome of the two-thread move for one entry.
enum MoveResult : int {
  MOVE_NOT_PROCESSED = -3,
  MOVE_MUST_COPY = -2,  // cannot be renamed, the ordinary loop copies it
  MOVE_FAILED = -1,     // `error` tells why
  MOVE_DONE = 0,
};

// One source.
struct ENTRY_STAT {
  std::string sharePath;  // as the request names it
  std::string codePage;   // character set of its name
  int error;              // web-API code; not 0: reported only
  int overwriteMode;      // ConflictMode
  int result;             // MoveResult
  bool destExists;        // the destination existed just before it was processed
};

// Key: the entry's absolute real path. Entries are processed in byte order.
using EntryMap = std::map<std::string, ENTRY_STAT>;

}  // namespace Fennox

// One thread's share of a two-thread move.
struct MOVE_THREAD_INFO {
  int index = 0;
  bool isDirMap = false;
  std::string destParam;
  std::string destFolder;
  std::string destCodePage;
  std::map<std::string, Fennox::ENTRY_STAT> entries;
  unsigned long long existCount = 0;
  int overwritePolicy = -1;  // copier policy for entries whose mode is 0
};

// Cached parameters of one remote mount.
struct COPY_PARM {
  std::string reserved1;
  std::string remoteBase;  // path on the server of the top-level local path
  std::string reserved2;
  std::string codePage;
  std::string protocol;
  bool enableCurl = false;  // file data streams through the cloud library
};
