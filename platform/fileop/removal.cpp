#include "removal.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <utility>

#include "stable.h"
#include "vfs/mounts.h"

namespace fileop {
namespace {

bool SameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

core::UniqueFd OpenOrigin(const Origin& origin) {
  core::UniqueFd folder =
      OpenFolderNoLinks(AT_FDCWD, origin.path.empty() ? "/" : origin.path, O_PATH);
  struct stat st;
  if (!folder || ::fstat(folder.get(), &st) != 0) return {};
  if (IdentityOf(st) == origin.id) return folder;
  errno = ESTALE;
  return {};
}

}  // namespace

void LogKept(const std::string& path, const Failure& failure) {
  syslog(LOG_ERR, "%s was moved, but the source could not be removed: %s", path.c_str(),
         std::strerror(failure.err));
}

void RemovalBatch::Add(const std::shared_ptr<const Origin>& origin, std::string name,
                       const struct stat& st) {
  const bool folder = S_ISDIR(st.st_mode);
  records_.push_back({origin, std::move(name), IdentityOf(st), folder, st.st_nlink > 1, st.st_size,
                      st.st_mtim, st.st_ctim});
  if (S_ISREG(st.st_mode)) bytes_ += static_cast<unsigned long long>(st.st_size);
}

int RemovalBatch::NeedsSync(const TargetFolder& folder) {
  for (const auto& target : targets_) {
    if (target.first == folder.id.dev) return 0;
  }
  core::UniqueFd fd = OpenForSync(folder.fd.get());
  if (!fd) return Fail(errno, Side::kDestination);
  targets_.emplace_back(folder.id.dev, std::move(fd));
  return 0;
}

int RemovalBatch::Sync() {
  for (const auto& target : targets_) {
    if (SyncVolume(target.second.get()) != 0) return Fail(errno, Side::kDestination);
  }
  return 0;
}

int RemovalBatch::Remove(const Record& record, int folder) {
  const char* name = record.name.c_str();
  struct stat st;
  if (::fstatat(folder, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? 0 : Fail(errno, Side::kSource);
  }
  if (!(IdentityOf(st) == record.id)) return Fail(ESTALE, Side::kSource);
  if (!record.folder) {
    const bool same = st.st_size == record.size && SameTime(st.st_mtim, record.mtime) &&
                      (record.linked || SameTime(st.st_ctim, record.ctime));
    if (!same) return Fail(EBUSY, Side::kSource);
  }
  if (::unlinkat(folder, name, record.folder ? AT_REMOVEDIR : 0) == 0) return 0;
  return Fail(errno, Side::kSource);
}

int RemovalBatch::Flush(const OnFailure& on_failure) {
  if (records_.empty()) return 0;
  const std::vector<Record> records = std::exchange(records_, {});
  bytes_ = 0;
  Failure first;
  const auto failed = [&](const Record& record) {
    const Failure failure = LatestFailure();
    if (!first) first = failure;
    on_failure(record.origin->path + "/" + record.name, failure);
  };
  if (Sync() < 0) {
    const Failure failure = LatestFailure();
    for (const Record& record : records) {
      on_failure(record.origin->path + "/" + record.name, failure);
    }
    return Report(failure);
  }
  // A source must be seen to be what was copied by a look that is younger than the copy.
  const Origin* origin = nullptr;
  for (const Record& record : records) {
    if (record.origin.get() == origin) continue;
    origin = record.origin.get();
    if (vfs::AwaitFresh(origin->path)) break;
  }
  origin = nullptr;
  core::UniqueFd folder;
  for (const Record& record : records) {
    if (record.origin.get() != origin) {
      origin = record.origin.get();
      folder = OpenOrigin(*origin);
      if (!folder) Fail(errno, Side::kSource);
    }
    if (!folder || Remove(record, folder.get()) < 0) failed(record);
  }
  return first ? Report(first) : 0;
}

}  // namespace fileop
