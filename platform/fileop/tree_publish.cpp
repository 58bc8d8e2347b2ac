// How a folder that was built under a temporary name gets its own.
#include <fcntl.h>
#include <unistd.h>

#include "conflict.h"
#include "core/error.h"
#include "pending_file.h"
#include "tree_copy.h"

namespace fileop {
namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

}  // namespace

void TreeCopy::Publish(Level& level) {
  if (!level.to.unseen || level.lost) return;
  Settle(level);
  if (!level.to.unseen || level.lost) return;  // what has arrived made it long enough
  // Those that are ahead belong to the folder in hand.
  if (levels_.back().get() == &level) lookahead_.DropTargets();
  TargetFolder& parent = ParentTo(level);
  const int dir = parent.fd.get();
  int result = RenameNoReplace(dir, level.temp_name.c_str(), dir, level.to_name.c_str());
  if (result != 0) {
    result = errno == EEXIST ? MergeUnseen(level, parent) : Fail(errno, Side::kDestination);
  }
  if (result != 0) {
    const Failure failure = LatestFailure();
    Discard(level, parent);
    Note(failure);
    return;
  }
  level.to.unseen = false;
  level.to.path = parent.path + "/" + level.to_name;
  links_.FolderMoved(level.to.id, level.to.path);
  auto staged = std::move(level.staged);
  level.staged.clear();
  for (const auto& [name, st] : staged) StageRemoval(level, name, st);
  if (removals_.Full()) FlushRemovals();
}

// Someone made the folder meanwhile: the files move over one by one.
int TreeCopy::MergeUnseen(Level& level, TargetFolder& parent) {
  TargetFolder there;
  there.fs_type = level.to.fs_type;
  there.path = parent.path + "/" + level.to_name;
  there.fd.reset(::openat(parent.fd.get(), level.to_name.c_str(), kOpenFolder));
  if (!there.fd) return FailWith(core::kErrFolderExpected, ENOTDIR, Side::kDestination);
  if (DescribeTarget(&there) < 0) return -1;
  if (request_.removes && removals_.NeedsSync(there) < 0) return -1;
  SourceFolder dark;
  dark.path = level.to.path;
  dark.fd.reset(::openat(level.to.fd.get(), ".", kOpenFolder));
  if (!dark.fd) return Fail(errno, Side::kDestination);
  DirStream stream;
  DirStream::Entry entry;
  while (stream.Next(dark.fd.get(), &entry)) {
    Job job{request_, dark, entry.name, there, entry.name};
    job.free_names = true;
    job.SetPaths();
    const int moved = TryRename(job);
    if (moved < 0) Note(LatestFailure());
    if (moved == 0 && job.outcome == Outcome::kRenamed) continue;
    level.kept = true;
    std::erase_if(level.staged, [&](const auto& staged) { return staged.first == job.name; });
    ::unlinkat(dark.fd.get(), job.name.c_str(), 0);
  }
  ::unlinkat(parent.fd.get(), level.temp_name.c_str(), AT_REMOVEDIR);
  level.to = std::move(there);
  level.fresh = false;
  return 0;
}

void TreeCopy::Discard(Level& level, TargetFolder& parent) {
  DirStream stream;
  DirStream::Entry entry;
  if (stream.Rewind(&level.to.fd) == 0) {
    while (stream.Next(level.to.fd.get(), &entry)) ::unlinkat(level.to.fd.get(), entry.name, 0);
  }
  ::unlinkat(parent.fd.get(), level.temp_name.c_str(), AT_REMOVEDIR);
  level.staged.clear();
  level.lost = true;
  level.kept = true;
}

}  // namespace fileop
