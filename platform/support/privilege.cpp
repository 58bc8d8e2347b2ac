#include "support/privilege.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/user_list.h"
#include "share_lookup.h"
#include "support/errors.h"
#include "support/path_info.h"
#include "user_record.h"
#include "vfs/vfs.h"

namespace support {

namespace {

enum PrivType : int { kNone = 0, kRead = 1, kWrite = 2 };

PrivType RightsOn(const core::ShareConfig& share, const std::string& user) {
  if (core::IsUserListed(user, share.write)) return kWrite;
  return core::IsUserListed(user, share.read) ? kRead : kNone;
}

bool HasHome(const std::string& user) {
  const UserRecord record = FindUser(user.c_str());
  struct stat st {};
  return record && stat(record->home.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

struct Rights {
  PrivType type = kNone;
  int flags = 0;
};

// False when there is no such share.
bool FindRights(const std::string& path, const std::string& user, Rights* rights) {
  if (IsDirUserHome(path.c_str(), nullptr)) {
    *rights = {kWrite, 0};
    return true;
  }
  vfs::MountInfo mount;
  if (vfs::FindBySharePath(path, &mount)) {
    const core::RemoteConfig* remote = FindRemote(mount.name);
    if (!remote) return false;
    *rights = {core::IsUserListed(user, remote->users) ? kWrite : kNone, 0};
    return true;
  }
  const core::ShareConfig* share = FindShare(ShareNameOf(path));
  if (!share) return false;
  *rights = {RightsOn(*share, user), share->restrictions};
  return true;
}

}  // namespace

std::vector<ShareView> SharesOf(const std::string& user) {
  std::vector<ShareView> views;
  if (HasHome(user)) views.push_back({std::string(kHomeShare), true, 0});
  for (const core::ShareConfig& share : core::CurrentConfig().shares) {
    const PrivType type = RightsOn(share, user);
    if (type != kNone) views.push_back({share.name, type == kWrite, share.restrictions});
  }
  return views;
}

}  // namespace support

int WfmLibGetPrivilege(const char* sharePath, const char* userName, const char* /*sessionId*/,
                       int* privType, int* privFlags) {
  support::Rights rights;
  if (!sharePath || !support::FindRights(sharePath, userName ? userName : "", &rights)) {
    support::SetErr(sharePath ? support::CodeOfMissingMount(sharePath) : WEBFM_NO_SHARE);
    return -1;
  }
  *privType = rights.type;
  *privFlags = rights.flags;
  return 0;
}

int ACLAccess(const char* path, int mode) {
  struct stat st {};
  int result = -1;
  if (!path || (mode & ~(R_OK | W_OK | X_OK)) != 0) {
    errno = EINVAL;
  } else if (stat(path, &st) == 0) {
    // A folder's entries cannot be changed without reaching them.
    if (S_ISDIR(st.st_mode) && (mode & W_OK)) mode |= X_OK;
    result = faccessat(AT_FDCWD, path, mode, AT_EACCESS);
  }
  if (result != 0) support::SetErr(WfmParseErrnoToError(errno, path, nullptr));
  return result;
}
