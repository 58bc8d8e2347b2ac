#include "ends.h"

#include <sys/stat.h>

#include <cstring>
#include <utility>

#include "vfs/vfs.h"

namespace fileop {
namespace {

// For so long an open folder passes for what its path leads to. What happens to the path
// meanwhile counts as done afterwards: the folder worked on is the one that was found,
// whoever has moved it.
constexpr std::chrono::milliseconds kPathHolds{5};

void Seen(Clock::time_point now, SourceFolder* folder) {
  folder->seen = now;
  folder->no_companions = false;
}
void Seen(Clock::time_point now, TargetFolder* folder) { folder->seen = now; }

// True when `folder` is the parent of `path`, and its path still leads to it. An
// open folder keeps its number to itself, so the comparison cannot be fooled.
template <typename Folder>
bool IsParentOf(Folder& folder, const char* path, Clock::time_point now, std::string* name) {
  if (!folder.fd) return false;
  const std::size_t size = folder.path.size();
  if (std::strncmp(path, folder.path.c_str(), size) != 0 || path[size] != '/') return false;
  const char* last = path + size + 1;
  const bool plain = *last != '\0' && std::strchr(last, '/') == nullptr &&
                     std::strcmp(last, ".") != 0 && std::strcmp(last, "..") != 0;
  if (!plain) return false;
  if (now - folder.seen > kPathHolds) {
    struct stat st;
    if (::lstat(size == 0 ? "/" : folder.path.c_str(), &st) != 0) return false;
    if (!(IdentityOf(st) == folder.id)) return false;
    Seen(now, &folder);
  }
  *name = last;
  return true;
}

// *fresh tells whether the folder was opened now.
template <typename Folder>
int OpenEnd(const char* path, Side side, Folder* folder, std::string* name, bool* fresh) {
  const Clock::time_point now = Clock::now();
  *fresh = path == nullptr || !IsParentOf(*folder, path, now, name);
  if (!*fresh) return 0;
  OpenedParent parent;
  *folder = {};
  if (OpenParent(path, side, &parent) < 0) return -1;
  struct stat st;
  if (::fstat(parent.dir.get(), &st) != 0) return Fail(errno, side);
  folder->id = IdentityOf(st);
  Seen(now, folder);
  folder->fd = std::move(parent.dir);
  folder->path = std::move(parent.dir_path);
  *name = std::move(parent.name);
  return 0;
}

}  // namespace

int OpenEnds(const char* src, const char* dst, Ends* ends) {
  bool fresh_from = false;
  bool fresh_to = false;
  if (OpenEnd(src, Side::kSource, &ends->from, &ends->name, &fresh_from) < 0) return -1;
  if (OpenEnd(dst, Side::kDestination, &ends->to, &ends->to_name, &fresh_to) < 0) return -1;
  if (fresh_from) ends->from.fs_type = FsTypeOf(ends->from.fd.get());
  if (fresh_to) ends->to.fs_type = FsTypeOf(ends->to.fd.get());
  vfs::MountInfo mount;
  ends->from.remote = vfs::FindByFullPath(src, &mount);
  ends->to.remote = vfs::FindByFullPath(dst, &mount);
  ends->to.owner_known = false;
  return 0;
}

int DescribeEnds(bool removes, Ends* ends) {
  return DescribeSource(removes, &ends->from) < 0 ? -1 : DescribeTarget(&ends->to);
}

}  // namespace fileop
