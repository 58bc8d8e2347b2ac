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

Verdict Refuse(int code, int err) {
  FailWith(code, err, Side::kUnknown);
  return Verdict::kFail;
}

}  // namespace

Verdict ResolveConflict(Job& job) {
  struct stat there;
  if (::fstatat(job.to.fd.get(), job.to_name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) {
      job.replace = false;
      return Verdict::kGo;
    }
    Fail(errno, Side::kDestination);
    return Verdict::kFail;
  }
  if (S_ISDIR(there.st_mode)) return Refuse(core::kErrFileExpected, EISDIR);
  const TAVOCOPYOPTIONS& options = *job.request.options;
  if (options.newName != nullptr && job.free_names && options.conflictPolicy <= 0) {
    return TakeFreeName(job) ? Verdict::kGo : Refuse(core::kErrExists, EEXIST);
  }
  if (options.conflictPolicy == 0) return Verdict::kSkip;
  struct stat src;
  if (::fstatat(job.from.fd.get(), job.name.c_str(), &src, AT_SYMLINK_NOFOLLOW) != 0) {
    Fail(errno, Side::kSource);
    return Verdict::kFail;
  }
  // To replace a file by itself would leave nothing.
  if (IdentityOf(src) == IdentityOf(there)) return Refuse(core::kErrExists, EEXIST);
  if (options.conflictPolicy < 0) return Refuse(core::kErrExists, EEXIST);
  job.replace = true;
  return Verdict::kGo;
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
    switch (ResolveConflict(job)) {
      case Verdict::kFail:
        return -1;
      case Verdict::kSkip:
        job.outcome = Outcome::kSkipped;
        return 0;
      case Verdict::kGo:
        break;
    }
  }
  return Fail(EEXIST, Side::kDestination);
}

}  // namespace fileop
