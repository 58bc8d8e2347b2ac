// Users of the system.
#pragma once

#include <sys/types.h>

#include <string>

// One user's record, taken from the system's user database.
struct TAVOUSER {
  std::string name;
  std::string home;  // absolute path of the home folder
  uid_t uid;
  gid_t gid;
};

// Looks `name` up. 0 on success, and *out is a record that the caller gives
// back with TAVOUserFree. Non-zero when there is no such user: *out is null and
// the last error is set (kErrNotFound, or kErrSystem when the database cannot
// be read).
int TAVOUserGet(const char* name, TAVOUSER** out);
void TAVOUserFree(TAVOUSER* user);

// The user's ids. 0 on success, negative (last error set) otherwise.
int TAVOUserGetUGID(const char* name, uid_t* uid, gid_t* gid);

// The uid behind a session: that of `userName`. (uid_t)-1 when unknown.
uid_t TavoCgiUIDGet(const char* sessionId, const char* userName);
