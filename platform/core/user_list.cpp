#include "core/user_list.h"

#include <grp.h>

#include <algorithm>
#include <cerrno>

#include "core/user.h"

namespace core {
namespace {

bool FindGroup(const std::string& name, gid_t* gid) {
  std::vector<char> buffer(1024);
  group record{};
  group* found = nullptr;
  int result = 0;
  while ((result = getgrnam_r(name.c_str(), &record, buffer.data(), buffer.size(), &found)) ==
         ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (result != 0 || found == nullptr) return false;
  *gid = record.gr_gid;
  return true;
}

// All groups of the user, the main one included.
std::vector<gid_t> GroupsOf(const std::string& user) {
  uid_t uid = 0;
  gid_t gid = 0;
  if (TAVOUserGetUGID(user.c_str(), &uid, &gid) != 0) return {};
  int count = 64;
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  while (getgrouplist(user.c_str(), gid, groups.data(), &count) < 0) {
    // The call says how many there are, which may have grown since.
    if (count <= static_cast<int>(groups.size())) count = static_cast<int>(groups.size()) * 2;
    groups.resize(static_cast<std::size_t>(count));
  }
  groups.resize(static_cast<std::size_t>(count));
  return groups;
}

}  // namespace

bool IsUserListed(const std::string& user, const std::vector<std::string>& list) {
  std::vector<gid_t> groups;
  for (const std::string& entry : list) {
    if (entry == "*" || (!entry.empty() && entry == user)) return true;
    gid_t gid = 0;
    if (!entry.starts_with('@') || !FindGroup(entry.substr(1), &gid)) continue;
    if (groups.empty()) groups = GroupsOf(user);
    if (std::find(groups.begin(), groups.end(), gid) != groups.end()) return true;
  }
  return false;
}

}  // namespace core
