#include "hard_links.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "conflict.h"
#include "pending_file.h"
#include "stable.h"

namespace fileop {
namespace {

struct Earlier {
  int folder;
  const char* name;
};

int MakeHardLink(int folder, const char* name, const void* how) {
  const auto& earlier = *static_cast<const Earlier*>(how);
  return ::linkat(earlier.folder, earlier.name, folder, name, 0);
}

// A name that replaces another file must stand for data that is on disk.
bool IsOnDisk(const Earlier& earlier) {
  const core::UniqueFd copy(
      ::openat(earlier.folder, earlier.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  return copy.valid() && SyncData(copy.get()) == 0;
}

}  // namespace

int HardLinks::TryLink(Job& job) {
  const auto at = files_.find(IdentityOf(job.st));
  if (at == files_.end()) return 0;
  const Copy& copy = at->second;
  core::UniqueFd opened;
  Earlier earlier{job.to.fd.get(), copy.name.c_str()};
  if (!(copy.folder == job.to.id)) {
    opened = OpenFolderNoLinks(AT_FDCWD, folders_.at(copy.folder).path, O_PATH);
    earlier.folder = opened.get();
  }
  // Only our own copy will do; a name that others took meanwhile will not.
  struct stat st;
  if (earlier.folder < 0 ||
      ::fstatat(earlier.folder, earlier.name, &st, AT_SYMLINK_NOFOLLOW) != 0 ||
      !(IdentityOf(st) == copy.file)) {
    Forget(at);
    return 0;
  }
  if (job.replace && !IsOnDisk(earlier)) {
    Forget(at);
    return 0;  // a copy of its own can be synced
  }
  PendingFile node;
  if (node.CreateNode(job.to, job.to_name, job.replace, MakeHardLink, &earlier) < 0) {
    Forget(at);
    return 0;  // too many links, or none at all here
  }
  if (node.Commit(job.to_name, job.replace) != 0) return 0;
  job.outcome = Outcome::kCopied;
  if (--at->second.names_left == 0) Forget(at);
  return 1;
}

void HardLinks::Remember(const Job& job) {
  struct stat st;
  if (::fstatat(job.to.fd.get(), job.to_name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return;
  files_[IdentityOf(job.st)] = {job.to.id, job.to_name, IdentityOf(st), job.st.st_nlink - 1};
  Folder& folder = folders_[job.to.id];
  folder.path = job.to.path;
  ++folder.uses;
}

void HardLinks::FolderMoved(const Identity& folder, const std::string& path) {
  const auto at = folders_.find(folder);
  if (at != folders_.end()) at->second.path = path;
}

void HardLinks::Forget(std::unordered_map<Identity, Copy, Hash>::iterator at) {
  const auto folder = folders_.find(at->second.folder);
  if (folder != folders_.end() && --folder->second.uses == 0) folders_.erase(folder);
  files_.erase(at);
}

}  // namespace fileop
