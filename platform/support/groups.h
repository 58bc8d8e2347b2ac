// Group membership, from the system's user database.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace support {

// All groups of a user whose main group is `gid`, that one included.
std::vector<gid_t> GroupsOf(const std::string& user, gid_t gid);

// Id of a group; false when there is no such group.
[[nodiscard]] bool FindGroup(const std::string& name, gid_t* gid);

}  // namespace support
