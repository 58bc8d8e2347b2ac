#include "replace_batch.h"

#include <fcntl.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <utility>

#include "core/error.h"
#include "core/fs_type.h"
#include "stable.h"

namespace fileop {
namespace {

// A part of the free room, so that the room which waiting files take together
// with what they replace is never missed.
constexpr unsigned long long kPartOfFree = 16;

unsigned long long FreeBytes(int fd) {
  struct statvfs volume;
  if (::fstatvfs(fd, &volume) != 0) return 0;
  return static_cast<unsigned long long>(volume.f_bavail) * volume.f_frsize;
}

}  // namespace

int ReplaceBatch::Prepare(const TargetFolder& folder) {
  if (folder.remote || (volume_.valid() && volume_dev_ == folder.id.dev)) return 0;
  volume_ = OpenForSync(folder.fd.get());
  if (!volume_) return Fail(errno, Side::kDestination);
  volume_dev_ = folder.id.dev;
  return 0;
}

int ReplaceBatch::Take(Job& job, PendingFile& file) {
  // To a network mount a sync of the volume means nothing; links are made to
  // files that have their names.
  const bool waits = job.replace && !file.stands_as().empty() && !job.to.remote &&
                     TAVOFSIsRemoteFS(job.to.fs_type) == 0 && job.st.st_nlink == 1 &&
                     volume_.valid();
  if (!waits) return 0;
  if (files_.empty()) limit_ = std::min(kMaxBytes, FreeBytes(volume_.get()) / kPartOfFree);
  const auto size = static_cast<unsigned long long>(job.st.st_size);
  if (bytes_ + size > limit_) return 0;
  if (file.Close() < 0) return -1;
  files_.push_back({job.name, job.to_name, job.st, std::move(file)});
  bytes_ += size;
  job.outcome = Outcome::kWaiting;
  return 1;
}

int ReplaceBatch::Sync() {
  if (files_.size() > kFew) {
    return SyncVolume(volume_.get()) == 0 ? 0 : Fail(errno, Side::kDestination);
  }
  for (Waiting& waiting : files_) {
    if (waiting.file.Sync() < 0) return -1;
  }
  return 0;
}

int ReplaceBatch::Name(Waiting& waiting) {
  if (waiting.file.Commit(waiting.to_name, true) == 0) return 0;
  if (errno == EISDIR) return FailWith(core::kErrFileExpected, EISDIR, Side::kDestination);
  return Fail(errno, Side::kDestination);
}

void ReplaceBatch::Flush(const OnDone& done) {
  if (files_.empty()) return;
  Failure failure;
  if (Sync() < 0) failure = LatestFailure();
  std::vector<Waiting> files = std::exchange(files_, {});
  bytes_ = 0;
  for (Waiting& waiting : files) {
    Failure own = failure;
    if (!own && Name(waiting) < 0) own = LatestFailure();
    waiting.file.Discard();
    done(waiting.name, waiting.st, own);
  }
}

}  // namespace fileop
