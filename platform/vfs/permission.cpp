#include <grp.h>

#include <string>
#include <vector>

#include "core/config.h"
#include "core/user.h"
#include "vfs/vfs.h"

namespace vfs {
namespace {

std::vector<gid_t> GroupsOf(const std::string& user) {
  uid_t uid = 0;
  gid_t gid = 0;
  if (TAVOUserGetUGID(user.c_str(), &uid, &gid) != 0) return {};
  int count = 64;
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  if (getgrouplist(user.c_str(), gid, groups.data(), &count) < 0) {
    groups.resize(static_cast<std::size_t>(count));
    if (getgrouplist(user.c_str(), gid, groups.data(), &count) < 0) return {};
  }
  groups.resize(static_cast<std::size_t>(count));
  return groups;
}

bool IsInGroup(const std::string& user, const std::string& name) {
  std::vector<char> buffer(65536);
  group entry{};
  group* found = nullptr;
  if (getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
      found == nullptr) {
    return false;
  }
  for (const gid_t gid : GroupsOf(user)) {
    if (gid == found->gr_gid) return true;
  }
  return false;
}

}  // namespace

bool IsUserListed(const std::string& user, const std::vector<std::string>& list) {
  for (const std::string& item : list) {
    if (item == "*" || item == user) return true;
    if (item.size() > 1 && item[0] == '@' && IsInGroup(user, item.substr(1))) return true;
  }
  return false;
}

}  // namespace vfs

namespace TAVOVFS {

bool Cfg::CheckPermissionByUserName(const char* user, _VFS_USER_CONFIG_ kind,
                                    const char* protocol) {
  if (user == nullptr || *user == '\0' || protocol == nullptr || kind != VFS_USER_CONFIG_PROTOCOL) {
    return false;
  }
  for (const core::RemoteConfig& remote : core::CurrentConfig().remotes) {
    if (remote.protocol == protocol && vfs::IsUserListed(user, remote.users)) return true;
  }
  return false;
}

}  // namespace TAVOVFS
