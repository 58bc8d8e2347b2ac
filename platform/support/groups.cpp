#include "groups.h"

#include <grp.h>

#include <cerrno>

namespace support {

std::vector<gid_t> GroupsOf(const std::string& user, gid_t gid) {
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

bool FindGroup(const std::string& name, gid_t* gid) {
  std::vector<char> buffer(1024);
  struct group record {};
  struct group* found = nullptr;
  int result = 0;
  while ((result = getgrnam_r(name.c_str(), &record, buffer.data(), buffer.size(), &found)) ==
         ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (result != 0 || !found) return false;
  *gid = record.gr_gid;
  return true;
}

}  // namespace support
