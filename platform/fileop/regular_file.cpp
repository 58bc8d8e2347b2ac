#include "regular_file.h"

#include <fcntl.h>
#include <unistd.h>

#include "conflict.h"
#include "core/error.h"
#include "core/fs_type.h"
#include "finisher.h"
#include "ladder.h"
#include "lookahead.h"
#include "metadata.h"
#include "pending_file.h"
#include "replace_batch.h"

namespace fileop {
namespace {

int OpenAgain(Job& job) {
  job.src.reset(OpenQuietly(job.from.fd.get(), job.name.c_str()));
  struct stat st;
  if (!job.src || ::fstat(job.src.get(), &st) != 0) return Fail(errno, Side::kSource);
  return IdentityOf(st) == IdentityOf(job.st) ? 0 : Fail(ESTALE, Side::kSource);
}

// Lends the descriptors to the data hook, which is shown the copy as `shown`. The source's comes
// back into the job; what the hook has made of *dst is the caller's.
int CallDataHook(Job& job, const _TAVOCOPYARGSEX& hooks, const std::string& shown, int* dst) {
  const TAVOCOPYOPTIONS& options = *job.request.options;
  int src = job.src.release();
  job.lent_src = src;
  job.lent_dst = *dst;
  job.end_proven = false;
  const int result = CallHook(job, [&] {
    return hooks.read_write(job.src_path.c_str(), shown.c_str(), &src, dst, job.st.st_size,
                            options.progress, options.isCancelled, &hooks);
  });
  job.lent_src = job.lent_dst = -1;
  job.src.reset(src);
  return result;
}

// A small file that the data hook fetches from its server.
bool MayFetchBehind(const Job& job, const _TAVOCOPYARGSEX& hooks) {
  return job.may_stay_behind && hooks.behind && job.from.remote && job.unopened;
}

int MoveByHook(Job& job, const _TAVOCOPYARGSEX& hooks, PendingFile& file) {
  int dst = file.Lend();
  if (dst < 0) return -1;
  const bool may_stay_behind = MayFetchBehind(job, hooks);
  if (may_stay_behind) hooks.behind->letNext(1);
  if (CallDataHook(job, hooks, file.ShownPath(), &dst) < 0) {
    const core::UniqueFd lent(dst);
    file.DropUnfinished(dst);
    return -1;
  }
  if (file.TakeBack(dst) < 0) return -1;
  job.behind = may_stay_behind ? hooks.behind->last(1) : 0;
  return job.src.valid() || job.from.remote ? 0 : OpenAgain(job);
}

int SizeBehind(int src, off_t* size) {
  // Mounts remember attributes for a moment.
  struct statx now;
  if (::statx(src, "", AT_EMPTY_PATH | AT_STATX_FORCE_SYNC, STATX_SIZE, &now) != 0) {
    return Fail(errno, Side::kSource);
  }
  *size = static_cast<off_t>(now.stx_size);
  return 0;
}

// Size of the source now. What was streamed from its server is closed, and looked at by name.
int SizeOfSource(const Job& job, off_t* size) {
  if (!job.src) {
    struct stat st;
    if (::fstatat(job.from.fd.get(), job.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
      return Fail(errno, Side::kSource);
    }
    *size = st.st_size;
    return IdentityOf(st) == IdentityOf(job.st) ? 0 : Fail(ESTALE, Side::kSource);
  }
  return SizeBehind(job.src.get(), size);
}

// The copy must hold what its source holds at the end.
int CheckSize(const Job& job, off_t copied) {
  off_t size = 0;
  if (SizeOfSource(job, &size) < 0) return -1;
  const bool says_nothing = size == 0 && job.st.st_size == 0;  // /proc
  return size == copied || says_nothing ? 0 : Fail(EIO, Side::kSource);
}

int CheckSize(const Job& job, const PendingFile& file) {
  struct stat dst;
  if (::fstat(file.fd(), &dst) != 0) return Fail(errno, Side::kDestination);
  return CheckSize(job, dst.st_size);
}

int MoveData(Job& job, const DataWay& way, PendingFile& file) {
  const TAVOCOPYOPTIONS& options = *job.request.options;
  Pacer pacer(options.progress, options.isCancelled,
              way.hooks != nullptr ? way.hooks->read_size : nullptr);
  DataJob data;
  data.src = job.src.get();
  data.dst = file.fd();
  data.expected = job.st.st_size;
  data.src_st = &job.st;
  data.dst_is_new = true;
  if (way.share_blocks) {
    const int shared = ShareAllData(&data, &pacer);
    if (shared != 0) return shared < 0 ? -1 : 0;
  }
  if (way.hooks == nullptr || way.hooks->read_write == nullptr) {
    data.ahead = AheadData(job);
    return MoveAllData(&data, &pacer);
  }
  if (MoveByHook(job, *way.hooks, file) < 0) return -1;
  return job.end_proven || job.behind != 0 ? 0 : CheckSize(job, file);
}

bool Streams(const Job& job, const DataWay& way) {
  return job.to.remote && !way.share_blocks && way.hooks != nullptr &&
         way.hooks->streams != nullptr && way.hooks->read_write != nullptr &&
         way.hooks->streams(job.src_path.c_str(), job.dst_path.c_str(), job.st.st_size) != 0;
}

int ReadAgain(Job& job) {
  if (!job.src) return OpenAgain(job);
  return ::lseek(job.src.get(), 0, SEEK_SET) == 0 ? 0 : Fail(errno, Side::kSource);
}

// Gives the finished file its name, whatever came up there meanwhile.
int Publish(Job& job, PendingFile& file) {
  constexpr int kTries = 16;
  for (int i = 0; i < kTries; ++i) {
    if (file.Commit(job.to_name, job.replace) == 0) {
      job.outcome = Outcome::kCopied;
      return 0;
    }
    if (errno != EEXIST && errno != EISDIR) return Fail(errno, Side::kDestination);
    if (const auto result = SettleConflict(job)) return *result;
  }
  return Fail(EEXIST, Side::kDestination);
}

int Finish(Job& job, PendingFile& file) {
  const MetadataRules& rules = job.request.rules;
  if (ApplyMetadata(rules, job.src.get(), job.st, job.to, file.fd()) < 0) return -1;
  if (job.replacements != nullptr) {
    const int taken = job.replacements->Take(job, file);
    if (taken != 0) return taken < 0 ? -1 : 0;
  }
  // A sync of the whole file system means nothing to a network mount.
  if (job.request.removes && TAVOFSIsRemoteFS(job.to.fs_type) != 0 && ::fsync(file.fd()) != 0) {
    return Fail(errno, Side::kDestination);
  }
  // Without a name it takes the descriptor to get one, and to replace another
  // file its data must be synced; a remote mount sends what it was given when the
  // file is closed.
  const bool close = !file.stands_as().empty() && (!job.replace || job.to.remote);
  if (close && file.Close() < 0) return -1;
  return Publish(job, file);
}

// A file that needs no more than its data and its times.
bool MayStayBehind(const Job& job, const _TAVOCOPYARGSEX& hooks) {
  return job.may_stay_behind && hooks.behind && !job.replace && job.st.st_nlink == 1 &&
         !job.from.remote && job.to.owner_known &&
         NeedsTimesOnly(job.request.rules, job.st, job.to);
}

// The hook brings the file to its place, past the mount.
int StreamRegular(Job& job, const _TAVOCOPYARGSEX& hooks) {
  int dst = -1;
  const bool may_stay_behind = MayStayBehind(job, hooks);
  if (may_stay_behind) {
    hooks.behind->letNext(0);
  } else if (job.name_is_free) {
    job.name_is_free = false;
    if (const auto settled = SettleConflict(job)) return *settled;
  }
  const int result = CallDataHook(job, hooks, job.dst_path, &dst);
  const core::UniqueFd unasked(dst);
  if (result < 0) return -1;
  job.behind = may_stay_behind ? hooks.behind->last(0) : 0;
  if (job.behind != 0) {
    job.outcome = Outcome::kBehind;
    return 0;
  }
  if (!job.src && OpenAgain(job) < 0) return -1;
  struct stat there;
  if (::fstatat(job.to.fd.get(), job.to_name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0) {
    return Fail(errno, Side::kDestination);
  }
  if (CheckSize(job, there.st_size) < 0) return -1;
  // To open it costs a mount several questions to its server.
  const int timed = ApplyTimesOnly(job.request.rules, job.st, job.to, job.to_name, there);
  if (timed <= 0) {
    if (timed == 0) job.outcome = Outcome::kCopied;
    return timed;
  }
  PendingFile file;
  if (file.Adopt(job.to, job.to_name) < 0) return -1;
  return Finish(job, file);
}

}  // namespace

std::string_view AheadData(const Job& job) {
  if (job.ahead == nullptr) return {};
  return job.ahead->Content(job.src.valid() ? job.src.get() : job.lent_src);
}

int OpenQuietly(int folder, const char* name) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  // Not touching access times saves the source a write per file; only owners may.
  thread_local bool may = true;
  if (may) {
    const int fd = ::openat(folder, name, kFlags | O_NOATIME);
    if (fd >= 0 || (errno != EPERM && errno != EAGAIN)) return fd;
    if (errno == EPERM) may = false;
  }
  const int fd = ::openat(folder, name, kFlags);
  if (fd >= 0 || errno != EAGAIN) return fd;
  // A lease (a file server's own lock) is given up only for those who wait.
  struct stat st;
  if (::fstatat(folder, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return -1;
  if (!S_ISREG(st.st_mode)) {
    errno = EAGAIN;
    return -1;
  }
  return ::openat(folder, name, kFlags & ~O_NONBLOCK);
}

int OpenRegular(Job& job) {
  job.src.reset(OpenQuietly(job.from.fd.get(), job.name.c_str()));
  if (!job.src) return Fail(errno, Side::kSource);
  if (::fstat(job.src.get(), &job.st) != 0) return Fail(errno, Side::kSource);
  if (S_ISREG(job.st.st_mode)) return 0;
  return S_ISDIR(job.st.st_mode) ? FailWith(core::kErrFileExpected, EISDIR, Side::kSource)
                                 : Fail(ESTALE, Side::kSource);
}

int CopyRegular(Job& job, const DataWay& way) {
  if (!job.src && !job.unopened && OpenRegular(job) < 0) return -1;
  if (Streams(job, way)) {
    const int result = StreamRegular(job, *way.hooks);
    if (result == 0 || job.request.cancelled()) return result;
    const Failure why = LatestFailure();
    if (Streams(job, way)) return Report(why);
    if (ReadAgain(job) < 0) return -1;
  }
  PendingFile file;
  if (job.ahead != nullptr) file.Swap(job.ahead->target);
  if (file.fd() < 0) {
    const mode_t mode = CreationMode(job.request.rules, job.st);
    if (file.Create(job.to, job.to_name, mode, job.replace) < 0) return -1;
  }
  if (MoveData(job, way, file) < 0) return -1;
  if (job.behind != 0) {
    job.pending = std::make_shared<PendingFile>(std::move(file));
    job.outcome = Outcome::kBehind;
    return 0;
  }
  if (job.finisher != nullptr && job.finisher->Take(job, file) > 0) return 0;
  return Finish(job, file);
}

int FinishArrived(Job& job) {
  if (job.pending != nullptr) {
    // The server has said where the file ends.
    struct stat st;
    if (::fstat(job.pending->fd(), &st) != 0) return Fail(errno, Side::kDestination);
    if (st.st_size != job.st.st_size) return Fail(EIO, Side::kSource);
    return Finish(job, *job.pending);
  }
  if (CheckSize(job, job.st.st_size) < 0) return -1;
  job.outcome = Outcome::kCopied;
  return 0;
}

}  // namespace fileop
