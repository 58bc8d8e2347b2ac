#include "stable.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

#include "temp_name.h"

namespace fileop {
namespace {

// What a descriptor that cannot be synced by its kind answers.
bool CannotSync(int err) { return err == EINVAL || err == ENOTSUP; }

// A file system that met an error turns read-only, and has nothing to write from
// then on: what it had not written by then is lost.
int CheckWritable(int fd) {
  struct statvfs volume;
  if (::fstatvfs(fd, &volume) != 0) return -1;
  if ((volume.f_flag & ST_RDONLY) == 0) return 0;
  errno = EROFS;
  return -1;
}

}  // namespace

core::UniqueFd OpenForSync(int folder) {
  core::UniqueFd fd(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.valid() || errno != EACCES) return fd;
  // Not readable: any file of the volume will do.
  fd.reset(::openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
  if (fd.valid() || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return fd;
  const std::string name = MakeTempName();
  fd.reset(::openat(folder, name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
  if (fd.valid()) ::unlinkat(folder, name.c_str(), 0);
  return fd;
}

int SyncVolume(int fd) {
  if (::syncfs(fd) != 0) return -1;
  // syncfs has answered 0 without writing anything when the file system turned
  // itself read-only or was shut down before; one of these two tells.
  if (::fsync(fd) != 0 && !CannotSync(errno)) return -1;
  return CheckWritable(fd);
}

int SyncData(int fd) {
  if (::fdatasync(fd) != 0 && !CannotSync(errno)) return -1;
  return CheckWritable(fd);
}

}  // namespace fileop
