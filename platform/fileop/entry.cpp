#include "entry.h"

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <string>

#include "conflict.h"
#include "fileop/copy.h"
#include "lookahead.h"
#include "pending_file.h"
#include "regular_file.h"

namespace fileop {
namespace {

// Refuses what a move could copy but not remove afterwards.
int CheckRemovable(const Job& job) {
  if (!job.request.removes) return 0;
  if (job.from.removal_error != 0) return Fail(job.from.removal_error, Side::kSource);
  if (job.from.sticky && job.st.st_uid != ::geteuid()) return Fail(EPERM, Side::kSource);
  return 0;
}

int MakeLink(int folder, const char* name, const void* how) {
  return ::symlinkat(static_cast<const char*>(how), folder, name);
}

int MakeNode(int folder, const char* name, const void* how) {
  const auto& st = *static_cast<const struct stat*>(how);
  return ::mknodat(folder, name, (st.st_mode & S_IFMT) | 0600, st.st_rdev);
}

int PublishNode(Job& job, PendingFile& node) {
  const MetadataRules& rules = job.request.rules;
  const Attributed src{job.from.fd.get(), job.name};
  if (ApplyNodeMetadata(rules, src, job.st, job.to, node.stands_as()) < 0) return -1;
  while (node.Commit(job.to_name, job.replace) != 0) {
    if (errno != EEXIST) return Fail(errno, Side::kDestination);
    if (const auto result = SettleConflict(job)) return *result;
  }
  job.outcome = Outcome::kCopied;
  return 0;
}

int CopySymlink(Job& job) {
  std::string target(static_cast<std::size_t>(PATH_MAX), '\0');
  const ssize_t size =
      ::readlinkat(job.from.fd.get(), job.name.c_str(), target.data(), target.size());
  if (size < 0) return Fail(errno, Side::kSource);
  target.resize(static_cast<std::size_t>(size));
  PendingFile node;
  if (node.CreateNode(job.to, job.to_name, job.replace, MakeLink, target.c_str()) < 0) return -1;
  return PublishNode(job, node);
}

int CopySpecial(Job& job) {
  PendingFile node;
  if (node.CreateNode(job.to, job.to_name, job.replace, MakeNode, &job.st) < 0) return -1;
  return PublishNode(job, node);
}

// The hook did not use the empty copy that was made ahead. If it went its own way
// with it, the file is the hook's.
void TakeOver(Job& job) {
  PendingFile unused;
  unused.Swap(job.ahead->target);
  struct stat made;
  struct stat there;
  if (unused.fd() < 0 || ::fstat(unused.fd(), &made) != 0) return;
  const bool same =
      ::fstatat(job.to.fd.get(), job.to_name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
      IdentityOf(made) == IdentityOf(there);
  if (!same || made.st_size > 0) (void)!unused.Commit(job.to_name, false);
}

int CarryRegular(Job& job) {
  const _TAVOCOPYARGSEX* args = job.request.args;
  if (args == nullptr || args->copy_file == nullptr) return CopyRegular(job, {args, false});
  const std::string wanted = job.to_name;
  const int result = CallHook(job, [&] {
    return args->copy_file(job.src_path.c_str(), job.dst_path.c_str(), job.request.options,
                           job.from.fs_type, job.to.fs_type, 0, &job);
  });
  if (job.outcome != Outcome::kBehind) job.src.reset();
  if (job.ahead != nullptr && job.outcome == Outcome::kNone) TakeOver(job);
  if (result < 0) return -1;
  if (job.outcome != Outcome::kNone) return 0;
  // The hook went its own way, or found nothing to do.
  struct stat there;
  const int made = ::fstatat(job.to.fd.get(), wanted.c_str(), &there, AT_SYMLINK_NOFOLLOW);
  if (made == 0 && S_ISREG(there.st_mode)) job.outcome = Outcome::kCopied;
  return 0;
}

int CopyByType(Job& job, HardLinks* links) {
  const bool shared = links != nullptr && job.st.st_nlink > 1;
  if (shared) {
    const int linked = links->TryLink(job);
    if (linked > 0 && job.request.options->progress != nullptr) {
      job.request.options->progress(static_cast<unsigned long long>(job.st.st_size), 0);
    }
    if (linked != 0) return linked < 0 ? -1 : 0;
  }
  int result = 0;
  if (S_ISREG(job.st.st_mode)) {
    result = CarryRegular(job);
  } else if (S_ISLNK(job.st.st_mode)) {
    result = CopySymlink(job);
  } else {
    result = CopySpecial(job);
  }
  if (result == 0 && shared && job.outcome == Outcome::kCopied) links->Remember(job);
  return result;
}

}  // namespace

int CarryEntry(Job& job, const EntryWays& ways) {
  job.SetPaths();
  if (ways.rename) {
    const int renamed = TryRename(job);
    if (renamed <= 0) return renamed;
  }
  // One open serves the look and the copy of a regular file.
  if (!S_ISREG(job.st.st_mode)) {
    const int looked = ::fstatat(job.from.fd.get(), job.name.c_str(), &job.st, AT_SYMLINK_NOFOLLOW);
    if (looked != 0) return Fail(errno, Side::kSource);
  }
  if (S_ISREG(job.st.st_mode) && !job.src && !job.unopened && OpenRegular(job) < 0) return -1;
  if (CheckRemovable(job) < 0) return -1;
  if (!job.to.unseen && !job.name_is_free) {
    if (const auto result = SettleConflict(job)) return *result;
  }
  return CopyByType(job, ways.links);
}

}  // namespace fileop
