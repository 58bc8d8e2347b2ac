#include "pending_file.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "stable.h"
#include "temp_name.h"

namespace fileop {
namespace {

constexpr int kNewFile = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
constexpr int kTries = 16;

std::string ProcPath(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

// Devices that know no files without a name.
std::vector<dev_t>& WithoutNameless() {
  thread_local std::vector<dev_t> devices;
  return devices;
}

bool MayBeNameless(const TargetFolder& folder) {
  for (const dev_t dev : WithoutNameless()) {
    if (dev == folder.id.dev) return false;
  }
  return true;
}

}  // namespace

int RenameNoReplace(int from, const char* name, int to, const char* new_name) {
  if (::renameat2(from, name, to, new_name, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return -1;
  // A link is as careful; folders and file systems without links have to do
  // with a look first.
  if (::linkat(from, name, to, new_name, 0) == 0) return ::unlinkat(from, name, 0);
  if (errno == EEXIST) return -1;
  struct stat st;
  if (::fstatat(to, new_name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
    errno = EEXIST;
    return -1;
  }
  return errno == ENOENT ? ::renameat(from, name, to, new_name) : -1;
}

PendingFile::PendingFile(PendingFile&& other) noexcept
    : folder_(std::exchange(other.folder_, nullptr)),
      fd_(std::move(other.fd_)),
      stands_as_(std::move(other.stands_as_)),
      streams_to_(std::move(other.streams_to_)),
      made_(other.made_),
      at_its_place_(other.at_its_place_),
      committed_(other.committed_) {}

int PendingFile::Create(const TargetFolder& folder, const std::string& name, mode_t mode,
                        bool replace) {
  const int dir = folder.fd.get();
  if (folder.remote) {
    if (CreateNamed(folder, mode) < 0) return -1;
    struct stat st;
    if (::fstat(fd_.get(), &st) != 0) return Fail(errno, Side::kDestination);
    made_ = IdentityOf(st);
    streams_to_ = name;
    return 0;
  }
  if (folder.unseen) {
    fd_.reset(::openat(dir, name.c_str(), kNewFile, mode));
    if (!fd_) return Fail(errno, Side::kDestination);
    folder_ = &folder;
    stands_as_ = name;
    at_its_place_ = true;
    return 0;
  }
  if (!replace && MayBeNameless(folder)) {
    fd_.reset(::openat(dir, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
    if (fd_.valid()) {
      folder_ = &folder;
      return 0;
    }
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL && errno != ENOENT) {
      return Fail(errno, Side::kDestination);
    }
    WithoutNameless().push_back(folder.id.dev);
  }
  return CreateNamed(folder, mode);
}

int PendingFile::CreateNamed(const TargetFolder& folder, mode_t mode) {
  for (int i = 0; i < kTries && !fd_; ++i) {
    stands_as_ = MakeTempName();
    fd_.reset(::openat(folder.fd.get(), stands_as_.c_str(), kNewFile, mode));
    if (!fd_ && errno != EEXIST) break;
  }
  if (!fd_) return Fail(errno, Side::kDestination);
  folder_ = &folder;
  return 0;
}

int PendingFile::Adopt(const TargetFolder& folder, const std::string& name) {
  // Mounts without a cache open what is there for writing only when it is emptied.
  fd_.reset(::openat(folder.fd.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd_) return Fail(errno, Side::kDestination);
  folder_ = &folder;
  stands_as_ = name;
  at_its_place_ = committed_ = true;
  return 0;
}

int PendingFile::CreateNode(const TargetFolder& folder, const std::string& name, bool replace,
                            int (*make)(int folder, const char* name, const void* how),
                            const void* how) {
  at_its_place_ = folder.unseen || (folder.remote && !replace);
  for (int i = 0; i < kTries; ++i) {
    stands_as_ = at_its_place_ ? name : MakeTempName();
    if (make(folder.fd.get(), stands_as_.c_str(), how) == 0) {
      folder_ = &folder;
      return 0;
    }
    if (errno != EEXIST || at_its_place_) break;
  }
  return Fail(errno, Side::kDestination);
}

std::string PendingFile::ShownPath() const {
  if (stands_as_.empty()) return ProcPath(fd_.get());
  return folder_->path + "/" + (streams_to_.empty() ? stands_as_ : streams_to_);
}

int PendingFile::Lend() {
  // Without a name the file would be gone with its last descriptor.
  if (!stands_as_.empty()) return fd_.release();
  const int lent = ::fcntl(fd_.get(), F_DUPFD_CLOEXEC, 0);
  return lent < 0 ? Fail(errno, Side::kDestination) : lent;
}

int PendingFile::TakeBack(int fd) {
  if (stands_as_.empty()) {
    const core::UniqueFd lent(fd);
    return 0;
  }
  if (!streams_to_.empty() && !IsOurs(fd)) return TakeFromItsPlace(fd);
  fd_.reset(fd);
  if (fd_.valid()) return 0;
  fd_.reset(::openat(folder_->fd.get(), stands_as_.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
  return fd_.valid() ? 0 : Fail(errno, Side::kDestination);
}

bool PendingFile::IsOurs(int fd) const {
  struct stat st;
  return fd >= 0 && ::fstat(fd, &st) == 0 && IdentityOf(st) == made_;
}

void PendingFile::DropUnfinished(int fd) const {
  if (streams_to_.empty() || fd < 0 || IsOurs(fd)) return;
  const int saved = errno;
  ::unlinkat(folder_->fd.get(), streams_to_.c_str(), 0);
  errno = saved;
}

int PendingFile::TakeFromItsPlace(int fd) {
  const int dir = folder_->fd.get();
  ::unlinkat(dir, stands_as_.c_str(), 0);
  stands_as_ = streams_to_;
  at_its_place_ = true;
  fd_.reset(fd);
  if (!fd_) fd_.reset(::openat(dir, stands_as_.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  return fd_.valid() ? 0 : Fail(errno, Side::kDestination);
}

int PendingFile::LinkNameless(const std::string& name) {
  thread_local bool by_descriptor = true;
  const int dir = folder_->fd.get();
  if (by_descriptor) {
    if (::linkat(fd_.get(), "", dir, name.c_str(), AT_EMPTY_PATH) == 0) return 0;
    if (errno != ENOENT && errno != EPERM) return -1;
    by_descriptor = false;  // wants a privilege that this process lacks
  }
  return ::linkat(AT_FDCWD, ProcPath(fd_.get()).c_str(), dir, name.c_str(), AT_SYMLINK_FOLLOW);
}

int PendingFile::Commit(const std::string& name, bool replace) {
  const int dir = folder_->fd.get();
  if (at_its_place_) {
    committed_ = true;
    return 0;
  }
  if (stands_as_.empty()) {
    if (!replace) {
      committed_ = LinkNameless(name) == 0;
      return committed_ ? 0 : -1;
    }
    std::string temporary = MakeTempName();
    if (LinkNameless(temporary) != 0) return -1;
    stands_as_ = std::move(temporary);
  }
  // Else a power cut could leave the new name in the journal, its data nowhere,
  // and the old content gone.
  if (replace && fd_.valid() && SyncData(fd_.get()) != 0) return -1;
  const int renamed = replace ? ::renameat(dir, stands_as_.c_str(), dir, name.c_str())
                              : RenameNoReplace(dir, stands_as_.c_str(), dir, name.c_str());
  committed_ = renamed == 0;
  return renamed;
}

int PendingFile::Close() {
  if (!fd_) return 0;
  return ::close(fd_.release()) == 0 || errno == EINTR ? 0 : Fail(errno, Side::kDestination);
}

int PendingFile::Sync() const {
  core::UniqueFd again;
  if (!fd_) {
    constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    again.reset(::openat(folder_->fd.get(), stands_as_.c_str(), kFlags));
    if (!again) return Fail(errno, Side::kDestination);
  }
  return SyncData(fd_ ? fd_.get() : again.get()) == 0 ? 0 : Fail(errno, Side::kDestination);
}

void PendingFile::Swap(PendingFile& other) {
  std::swap(folder_, other.folder_);
  std::swap(fd_, other.fd_);
  std::swap(stands_as_, other.stands_as_);
  std::swap(streams_to_, other.streams_to_);
  std::swap(made_, other.made_);
  std::swap(at_its_place_, other.at_its_place_);
  std::swap(committed_, other.committed_);
}

void PendingFile::Discard() {
  const int saved = errno;
  if (folder_ != nullptr && !committed_ && !stands_as_.empty()) {
    ::unlinkat(folder_->fd.get(), stands_as_.c_str(), 0);
  }
  folder_ = nullptr;
  fd_.reset();
  errno = saved;
}

}  // namespace fileop
