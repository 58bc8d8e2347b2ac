#include "core/user.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "core/error.h"

namespace {

constexpr std::size_t kMaxRecordSize = 1 << 20;

// Looks `name` up; null with the last error set when there is none.
std::unique_ptr<TAVOUSER> FindUser(const char* name) {
  if (name == nullptr || *name == '\0') {
    VLIBCErrSetEx(core::kErrNotFound, __FILE__, __LINE__);
    return nullptr;
  }
  std::vector<char> buffer(1024);
  passwd record = {};
  passwd* found = nullptr;
  int error = 0;
  while (true) {
    error = getpwnam_r(name, &record, buffer.data(), buffer.size(), &found);
    if (error == EINTR) continue;
    if (error != ERANGE || buffer.size() >= kMaxRecordSize) break;
    buffer.resize(buffer.size() * 2);
  }
  if (found == nullptr) {
    // Name services disagree on whether an unknown name is an error.
    const bool unknown = error == 0 || error == ENOENT || error == ESRCH;
    VLIBCErrSetEx(unknown ? core::kErrNotFound : core::kErrSystem, __FILE__, __LINE__);
    return nullptr;
  }
  return std::make_unique<TAVOUSER>(
      TAVOUSER{record.pw_name, record.pw_dir, record.pw_uid, record.pw_gid});
}

}  // namespace

int TAVOUserGet(const char* name, TAVOUSER** out) {
  *out = FindUser(name).release();
  return *out == nullptr ? -1 : 0;
}

void TAVOUserFree(TAVOUSER* user) { std::unique_ptr<TAVOUSER>(user).reset(); }

int TAVOUserGetUGID(const char* name, uid_t* uid, gid_t* gid) {
  const auto user = FindUser(name);
  if (user == nullptr) return -1;
  if (uid != nullptr) *uid = user->uid;
  if (gid != nullptr) *gid = user->gid;
  return 0;
}

uid_t TavoCgiUIDGet(const char* /*sessionId*/, const char* userName) {
  const auto user = FindUser(userName);
  return user == nullptr ? static_cast<uid_t>(-1) : user->uid;
}
