// Lists of users in the configuration.
#pragma once

#include <string>
#include <vector>

namespace core {

// True when `user` is named by a list of users, "@group" and "*". Names that the
// system does not know name nobody.
[[nodiscard]] bool IsUserListed(const std::string& user, const std::vector<std::string>& list);

}  // namespace core
