#include <string>

#include "core/config.h"
#include "core/user_list.h"
#include "vfs/vfs.h"

namespace TAVOVFS {

bool Cfg::CheckPermissionByUserName(const char* user, _VFS_USER_CONFIG_ kind,
                                    const char* protocol) {
  if (user == nullptr || *user == '\0' || protocol == nullptr || kind != VFS_USER_CONFIG_PROTOCOL) {
    return false;
  }
  for (const core::RemoteConfig& remote : core::CurrentConfig().remotes) {
    if (remote.protocol == protocol && core::IsUserListed(user, remote.users)) return true;
  }
  return false;
}

}  // namespace TAVOVFS
