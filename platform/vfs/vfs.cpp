#include "vfs/vfs.h"

#include <unistd.h>

#include <atomic>

#include "mount_table.h"

namespace TAVOVFS {
namespace {

constexpr uid_t kNobodyGiven = static_cast<uid_t>(-1);
std::atomic<uid_t> actor{kNobodyGiven};

}  // namespace

bool InitGlobal(uid_t uid, bool /*readOnly*/) {
  if (uid == kNobodyGiven) return false;
  actor = uid;
  return true;
}

uid_t GetActorUID() {
  const uid_t uid = actor;
  return uid == kNobodyGiven ? geteuid() : uid;
}

bool Utils::GetProtocol(const char* path, std::string& protocol) {
  vfs::MountInfo mount;
  if (path == nullptr || !vfs::FindBySharePath(path, &mount)) return false;
  protocol = mount.protocol;
  return true;
}

bool Utils::GetBaseURI(const char* path, std::string& uri, bool checked) {
  if (path == nullptr) return false;
  vfs::MountInfo mount;
  if (checked && !vfs::FindBySharePath(path, &mount)) return false;
  const auto base = vfs::BaseUriOf(path);
  if (base) uri = *base;
  return base.has_value();
}

}  // namespace TAVOVFS
