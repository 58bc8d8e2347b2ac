#include "companions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "dir_stream.h"
#include "temp_name.h"

namespace fileop {
namespace {

constexpr char kFolder[] = "@eaDir";
constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

core::UniqueFd OpenOrMake(int parent) {
  core::UniqueFd folder(::openat(parent, kFolder, kOpenFolder));
  if (!folder && errno == ENOENT && (::mkdirat(parent, kFolder, 0777) == 0 || errno == EEXIST)) {
    folder.reset(::openat(parent, kFolder, kOpenFolder));
  }
  return folder;
}

bool Exists(int folder, const std::string& name) {
  struct stat st;
  return ::fstatat(folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

}  // namespace

std::vector<std::string> CompanionIndex::Of(int folder, const std::string& name) {
  struct stat st;
  if (::fstat(folder, &st) != 0) return {};
  if (!(IdentityOf(st) == listed_)) {
    names_.clear();
    DirStream stream;
    DirStream::Entry entry;
    while (stream.Next(folder, &entry)) names_.emplace_back(entry.name);
    std::sort(names_.begin(), names_.end());
    listed_ = IdentityOf(st);
  }
  std::vector<std::string> found;
  if (std::binary_search(names_.begin(), names_.end(), name)) found.push_back(name);
  const std::string prefix = name + "@";
  auto at = std::lower_bound(names_.begin(), names_.end(), prefix);
  for (; at != names_.end() && at->starts_with(prefix); ++at) found.push_back(*at);
  return found;
}

void CarryCompanions(CompanionIndex& index, TAVOCopyEAHook hook, SourceFolder& from_parent,
                     const std::string& name, const TargetFolder& to_parent,
                     const std::string& to_name) {
  if (from_parent.no_companions) return;
  const core::UniqueFd from(::openat(from_parent.fd.get(), kFolder, kOpenFolder));
  if (!from) {
    from_parent.no_companions = errno == ENOENT;
    return;
  }
  const std::vector<std::string> names = index.Of(from.get(), name);
  if (names.empty()) return;
  const core::UniqueFd to = OpenOrMake(to_parent.fd.get());
  if (!to) return;
  const std::string from_path = from_parent.path + "/" + kFolder + "/";
  const std::string to_path = to_parent.path + "/" + kFolder + "/";
  for (const std::string& companion : names) {
    if (!Exists(from.get(), companion)) continue;
    const std::string final_name = to_name + companion.substr(name.size());
    const std::string made = to_parent.remote ? final_name : MakeTempName();
    hook((from_path + companion).c_str(), (to_path + made).c_str());
    if (to_parent.remote) continue;
    if (::renameat(to.get(), made.c_str(), to.get(), final_name.c_str()) != 0) {
      ::unlinkat(to.get(), made.c_str(), 0);
    }
  }
}

}  // namespace fileop
