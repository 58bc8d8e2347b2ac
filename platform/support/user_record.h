// A user's record with an owner.
#pragma once

#include <memory>

#include "core/user.h"

namespace support {

struct UserFree {
  void operator()(TAVOUSER* user) const { TAVOUserFree(user); }
};
using UserRecord = std::unique_ptr<TAVOUSER, UserFree>;

// Null when there is no such user, or the name is null or empty; the core
// library's last error tells.
inline UserRecord FindUser(const char* name) {
  TAVOUSER* user = nullptr;
  if (!name || !*name || TAVOUserGet(name, &user) != 0) return nullptr;
  return UserRecord(user);
}

}  // namespace support
