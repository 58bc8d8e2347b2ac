#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "metadata.h"

namespace fileop {
namespace {

constexpr std::size_t kLargestValue = 64 * 1024;
constexpr char kAccessAcl[] = "system.posix_acl_access";
constexpr char kDefaultAcl[] = "system.posix_acl_default";

// Some mounts in user space answer so for what they do not know.
bool IsVague(int fd, int err) {
  struct statfs fs;
  return err == EIO && ::fstatfs(fd, &fs) == 0 && fs.f_type == FUSE_SUPER_MAGIC;
}

bool Unsupported(int fd, int err) { return err == ENOTSUP || err == ENOSYS || IsVague(fd, err); }

// A link cannot be opened, and a special file had better not be.
std::string PathOf(const Attributed& node) {
  return "/proc/self/fd/" + std::to_string(node.fd) + "/" + node.name;
}

ssize_t List(const Attributed& at, char* names, std::size_t size) {
  if (at.name.empty()) return ::flistxattr(at.fd, names, size);
  return ::llistxattr(PathOf(at).c_str(), names, size);
}

ssize_t Get(const Attributed& at, const char* name, char* value, std::size_t size) {
  if (at.name.empty()) return ::fgetxattr(at.fd, name, value, size);
  return ::lgetxattr(PathOf(at).c_str(), name, value, size);
}

int Set(const Attributed& at, const char* name, const std::vector<char>& value) {
  if (at.name.empty()) return ::fsetxattr(at.fd, name, value.data(), value.size(), 0);
  return ::lsetxattr(PathOf(at).c_str(), name, value.data(), value.size(), 0);
}

void Remove(const Attributed& at, const char* name) {
  const int saved = errno;
  if (at.name.empty()) {
    ::fremovexattr(at.fd, name);
  } else {
    ::lremovexattr(PathOf(at).c_str(), name);
  }
  errno = saved;
}

// The names, each ended by NUL. Negative with errno.
int ListNames(const Attributed& at, std::vector<char>* names) {
  char first[1024];
  ssize_t size = List(at, first, sizeof first);
  if (size >= 0) {
    names->assign(first, first + size);
    return 0;
  }
  while (errno == ERANGE) {
    size = List(at, nullptr, 0);
    if (size < 0) return -1;
    names->resize(static_cast<std::size_t>(size));
    size = List(at, names->data(), names->size());
    if (size < 0) continue;
    names->resize(static_cast<std::size_t>(size));
    return 0;
  }
  const int err = errno;
  if (Unsupported(at.fd, err)) return 0;
  errno = err;
  return -1;
}

// False with errno when it cannot be read; ENODATA when it is gone.
bool ReadValue(const Attributed& at, const char* name, std::vector<char>* value) {
  value->resize(4096);
  for (;;) {
    const ssize_t size = Get(at, name, value->data(), value->size());
    if (size >= 0) {
      value->resize(static_cast<std::size_t>(size));
      return true;
    }
    if (errno != ERANGE || value->size() >= kLargestValue) return false;
    value->resize(kLargestValue);
  }
}

// Access lists of other file-system families live in names that no other family
// can hold.
bool IsForeign(const char* name) {
  return std::strncmp(name, "system.", 7) == 0 && std::strcmp(name, kAccessAcl) != 0 &&
         std::strcmp(name, kDefaultAcl) != 0;
}

// Names that only a privileged process may write.
bool IsPrivileged(const char* name) {
  return std::strncmp(name, "security.", 9) == 0 || std::strncmp(name, "trusted.", 8) == 0;
}

// "No space" for an attribute often means that the file system's attribute area
// is too small for this one, not that the volume is full.
int WithoutFalseAlarm(int fd, int err) {
  struct statvfs volume;
  if (err != ENOSPC || ::fstatvfs(fd, &volume) != 0) return err;
  return volume.f_bavail > 1024 ? E2BIG : err;
}

int CopyOne(const Attributed& src, const Attributed& dst, const char* name) {
  thread_local std::vector<char> value;
  if (!ReadValue(src, name, &value)) {
    const int err = errno;
    return err == ENODATA || Unsupported(src.fd, err) ? 0 : Fail(err, Side::kSource);
  }
  if (Set(dst, name, value) == 0) return 0;
  const int err = errno;
  if (Unsupported(dst.fd, err)) return 0;
  if (IsPrivileged(name) && (err == EPERM || err == EACCES) && ::geteuid() != 0) return 0;
  return Fail(WithoutFalseAlarm(dst.fd, err), Side::kDestination);
}

}  // namespace

int CopyAttributes(const Attributed& src, const Attributed& dst, bool clear_acl) {
  std::vector<char> names;
  if (ListNames(src, &names) < 0) return Fail(errno, Side::kSource);
  if (clear_acl) {
    Remove(dst, kAccessAcl);
    Remove(dst, kDefaultAcl);
  }
  for (std::size_t at = 0; at < names.size(); at += std::strlen(&names[at]) + 1) {
    const char* name = &names[at];
    if (!IsForeign(name) && CopyOne(src, dst, name) < 0) return -1;
  }
  return 0;
}

}  // namespace fileop
