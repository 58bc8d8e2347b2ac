#include "level.h"

#include <fcntl.h>

namespace fileop {
namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

bool Is(const core::UniqueFd& fd, const Identity& id) {
  struct stat st;
  return fd.valid() && ::fstat(fd.get(), &st) == 0 && IdentityOf(st) == id;
}

core::UniqueFd OpenAbove(int below, const std::string& path, const Identity& id) {
  core::UniqueFd fd(::openat(below, "..", kOpenFolder));
  if (Is(fd, id)) return fd;
  fd = OpenFolderNoLinks(AT_FDCWD, path, O_RDONLY);
  if (Is(fd, id)) return fd;
  errno = ESTALE;
  return {};
}

}  // namespace

void SuspendLevel(Level* level) {
  level->stream.Suspend();
  level->from.fd.reset();
  level->to.fd.reset();
  level->open = false;
}

int ResumeLevel(const Level& below, Level* level) {
  if (level->open) return 0;
  level->from.fd = OpenAbove(below.from.fd.get(), level->from.path, level->from.id);
  if (!level->from.fd || level->stream.Resume(level->from.fd.get(), below.name) < 0) {
    return Fail(errno, Side::kSource);
  }
  level->to.fd = OpenAbove(below.to.fd.get(), level->to.path, level->to.id);
  if (!level->to.fd) return Fail(errno, Side::kDestination);
  level->open = true;
  return 0;
}

}  // namespace fileop
