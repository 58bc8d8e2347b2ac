#include "support/identity.h"

#include <grp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/config.h"
#include "support/errors.h"
#include "user_record.h"

namespace {

int Fail(int code, int err) {
  support::SetErr(code);
  errno = err;
  return -1;
}

int FailByErrno() {
  const int err = errno;
  return Fail(WfmParseErrnoToError(err, nullptr, nullptr), err);
}

bool AllUserIdsAre(uid_t uid) {
  uid_t real = 0;
  uid_t effective = 0;
  uid_t saved = 0;
  return getresuid(&real, &effective, &saved) == 0 && real == uid && effective == uid &&
         saved == uid;
}

bool AllGroupIdsAre(gid_t gid) {
  gid_t real = 0;
  gid_t effective = 0;
  gid_t saved = 0;
  return getresgid(&real, &effective, &saved) == 0 && real == gid && effective == gid &&
         saved == gid;
}

// Groups first: without root's user id they could no longer be changed.
bool Become(const TAVOUSER& user) {
  if (initgroups(user.name.c_str(), user.gid) != 0) return false;
  if (setresgid(user.gid, user.gid, user.gid) != 0) return false;
  if (setresuid(user.uid, user.uid, user.uid) != 0) return false;
  // The memory may hold what the user must not read. The kernel closes it by itself
  // only where it is not told otherwise.
  prctl(PR_SET_DUMPABLE, 0);
  if (AllUserIdsAre(user.uid) && AllGroupIdsAre(user.gid)) return true;
  errno = EPERM;
  return false;
}

bool EnsureState(const TAVOUSER& user) {
  return core::CurrentConfig().server.state.empty() ||
         core::EnsureUserStateFolder(user.name, user.uid, user.gid);
}

}  // namespace

int WfmLibUGIDSet(const char* /*sessionId*/, const char* userName) {
  const support::UserRecord user = support::FindUser(userName);
  if (!user) return Fail(WEBFM_UNKNOWN_USER, ENOENT);
  const bool already = AllUserIdsAre(user->uid);
  if (!already && geteuid() != 0) return Fail(WEBFM_NO_PERMISSION, EPERM);
  if (!EnsureState(*user)) return FailByErrno();
  if (already || Become(*user)) return 0;
  return FailByErrno();
}

unsigned int WfmLibUmask() { return umask(022); }

void WfmLibRestoreUmask(unsigned int mask) { umask(mask); }
