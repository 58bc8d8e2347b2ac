#include "folder.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>

#include "core/fs_type.h"
#include "vfs/vfs.h"

namespace fileop {
namespace {

int OpenAt2(int base, const char* path, int flags) {
  struct open_how how {};
  how.flags = static_cast<unsigned>(flags);
  how.resolve = RESOLVE_NO_SYMLINKS;
  return static_cast<int>(::syscall(SYS_openat2, base, path, &how, sizeof how));
}

// The same component by component: for paths longer than the kernel takes in one
// call, and for kernels and sandboxes without openat2.
core::UniqueFd Walk(int base, const std::string& path, int flags) {
  constexpr int kStep = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  core::UniqueFd at(path.starts_with('/') ? ::open("/", kStep) : ::openat(base, ".", kStep));
  std::size_t begin = 0;
  while (at.valid() && begin < path.size()) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    if (end > begin) {
      at.reset(::openat(at.get(), path.substr(begin, end - begin).c_str(), kStep));
    }
    begin = end + 1;
  }
  if (!at.valid()) return at;
  return core::UniqueFd(::openat(at.get(), ".", flags));
}

bool IsCanonical(const char* path) {
  if (path == nullptr || path[0] != '/' || path[1] == '\0') return false;
  for (const char* at = path; *at != '\0';) {
    const char* end = std::strchr(at + 1, '/');
    if (end == nullptr) end = at + std::strlen(at);
    const std::string part(at + 1, end);
    if (part.empty() || part == "." || part == "..") return false;
    at = end;
  }
  return true;
}

}  // namespace

core::UniqueFd OpenFolderNoLinks(int base, const std::string& path, int flags) {
  flags |= O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  const int fd = OpenAt2(base, path.empty() ? "." : path.c_str(), flags & ~O_NOFOLLOW);
  if (fd >= 0 || (errno != ENOSYS && errno != EPERM && errno != ENAMETOOLONG && errno != E2BIG)) {
    return core::UniqueFd(fd);
  }
  return Walk(base, path, flags);
}

int OpenParent(const char* path, Side side, OpenedParent* out) {
  if (!IsCanonical(path)) return Fail(EINVAL, side);
  const char* slash = std::strrchr(path, '/');
  out->name = slash + 1;
  out->dir_path.assign(path, slash);
  const std::string& dir = slash == path ? "/" : out->dir_path;
  out->dir = OpenFolderNoLinks(AT_FDCWD, dir, O_RDONLY);
  // A folder that may be entered but not listed is enough for single entries.
  if (!out->dir && errno == EACCES) out->dir = OpenFolderNoLinks(AT_FDCWD, dir, O_PATH);
  if (!out->dir) return Fail(errno, side);
  return 0;
}

int FsTypeOf(int fd) { return TAVOGetFSType(("/proc/self/fd/" + std::to_string(fd)).c_str(), 0); }

int DescribeSource(bool removes, SourceFolder* folder) {
  struct stat st;
  if (::fstat(folder->fd.get(), &st) != 0) return Fail(errno, Side::kSource);
  folder->id = IdentityOf(st);
  folder->removal_error = 0;
  folder->sticky = false;
  if (!removes) return 0;
  if (::faccessat(folder->fd.get(), ".", W_OK | X_OK, AT_EACCESS) != 0) {
    folder->removal_error = errno;
  }
  folder->sticky = (st.st_mode & S_ISVTX) != 0 && ::geteuid() != 0 && st.st_uid != ::geteuid();
  return 0;
}

int DescribeTarget(TargetFolder* folder) {
  struct stat st;
  if (::fstat(folder->fd.get(), &st) != 0) return Fail(errno, Side::kDestination);
  folder->id = IdentityOf(st);
  folder->default_acl = ::fgetxattr(folder->fd.get(), "system.posix_acl_default", nullptr, 0) > 0;
  return 0;
}

}  // namespace fileop
