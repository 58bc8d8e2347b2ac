#include "conflict.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdio>
#include <cstring>

#include "core/error.h"
#include "pending_file.h"

namespace fileop {
namespace {

// Exchanges to_name for a free name in the same folder.
bool TakeFreeName(Job& job) {
  std::array<char, PATH_MAX> buffer{};
  if (job.request.options->newName(job.dst_path.c_str(), buffer.data(),
                                   static_cast<int>(buffer.size())) < 0) {
    return false;
  }
  const char* slash = std::strrchr(buffer.data(), '/');
  const char* name = slash == nullptr ? buffer.data() : slash + 1;
  if (*name == '\0') return false;
  job.to_name = name;
  job.SetPaths();
  job.replace = false;
  return true;
}

int Refuse(int code, int err) { return FailWith(code, err, Side::kUnknown); }

}  // namespace

std::optional<int> SettleConflict(Job& job) {
  struct stat there;
  if (::fstatat(job.to.fd.get(), job.to_name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT) return Fail(errno, Side::kDestination);
    job.replace = false;
    return std::nullopt;
  }
  if (S_ISDIR(there.st_mode)) return Refuse(core::kErrFileExpected, EISDIR);
  const TAVOCOPYOPTIONS& options = *job.request.options;
  if (options.newName != nullptr && job.free_names && options.conflictPolicy <= 0) {
    if (TakeFreeName(job)) return std::nullopt;
    return Refuse(core::kErrExists, EEXIST);
  }
  if (options.conflictPolicy == 0) {
    job.outcome = Outcome::kSkipped;
    return 0;
  }
  struct stat src;
  if (::fstatat(job.from.fd.get(), job.name.c_str(), &src, AT_SYMLINK_NOFOLLOW) != 0) {
    return Fail(errno, Side::kSource);
  }
  // To replace a file by itself would leave nothing.
  if (IdentityOf(src) == IdentityOf(there)) return Refuse(core::kErrExists, EEXIST);
  if (options.conflictPolicy < 0) return Refuse(core::kErrExists, EEXIST);
  job.replace = true;
  return std::nullopt;
}

int TryRename(Job& job) {
  constexpr int kTries = 16;
  const int from = job.from.fd.get();
  const int to = job.to.fd.get();
  for (int i = 0; i < kTries; ++i) {
    const int renamed = job.replace
                            ? ::renameat(from, job.name.c_str(), to, job.to_name.c_str())
                            : RenameNoReplace(from, job.name.c_str(), to, job.to_name.c_str());
    if (renamed == 0) {
      job.outcome = Outcome::kRenamed;
      return 0;
    }
    if (errno == EXDEV || errno == EBUSY) return 1;
    if (errno != EEXIST) return Fail(errno, Side::kUnknown);
    if (const auto result = SettleConflict(job)) return *result;
  }
  return Fail(EEXIST, Side::kDestination);
}

}  // namespace fileop
