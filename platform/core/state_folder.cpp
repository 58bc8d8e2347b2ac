#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "core/config.h"
#include "core/unique_fd.h"

namespace core {
namespace {

// Users pass through the common folder to their own, and cannot list it.
constexpr mode_t kUsersMode = 0711;
constexpr mode_t kOwnMode = 0700;
constexpr mode_t kModeBits = 07777;

bool IsUserName(const std::string& user) {
  constexpr std::size_t kMaxComponent = 255;
  // The leading dot keeps "." and ".." out, and names free for the system.
  return !user.empty() && user[0] != '.' && user.size() <= kMaxComponent &&
         std::none_of(user.begin(), user.end(), [](char c) {
           return c == '/' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
         });
}

// The folder `name` in `parent`, made when missing; a link is refused.
UniqueFd OpenOrMake(int parent, const char* name, mode_t mode) {
  if (mkdirat(parent, name, mode) != 0 && errno != EEXIST) return {};
  return UniqueFd(openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Gives an O_PATH folder that owner and mode, when it has others.
bool Own(const UniqueFd& folder, uid_t uid, gid_t gid, mode_t mode) {
  struct stat st;
  if (fstat(folder.get(), &st) != 0) return false;
  const bool root = geteuid() == 0;
  if (!root && st.st_uid != geteuid()) {
    errno = EPERM;
    return false;
  }
  if (root && (st.st_uid != uid || st.st_gid != gid) &&
      fchownat(folder.get(), "", uid, gid, AT_EMPTY_PATH) != 0) {
    return false;
  }
  if ((st.st_mode & kModeBits) == mode) return true;
  // fchmod refuses O_PATH descriptors, and "." cannot be reached without search
  // right, which a strict umask may have taken from the new folder.
  const std::string self = "/proc/self/fd/" + std::to_string(folder.get());
  return chmod(self.c_str(), mode) == 0;
}

}  // namespace

std::string UserStateFolder(const std::string& user) {
  const std::string& state = CurrentConfig().server.state;
  if (state.empty() || !IsUserName(user)) return {};
  return state + "/users/" + user;
}

bool EnsureUserStateFolder(const std::string& user, unsigned uid, unsigned gid) {
  if (UserStateFolder(user).empty()) {
    errno = EINVAL;
    return false;
  }
  const std::string& state = CurrentConfig().server.state;
  const UniqueFd top(open(state.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!top) return false;
  const UniqueFd users = OpenOrMake(top.get(), "users", kUsersMode);
  if (!users) return false;
  // A user who is not the server only passes through the common folder.
  if (!Own(users, 0, 0, kUsersMode) && geteuid() == 0) return false;
  const UniqueFd own = OpenOrMake(users.get(), user.c_str(), kOwnMode);
  return own && Own(own, uid, gid, kOwnMode);
}

}  // namespace core
