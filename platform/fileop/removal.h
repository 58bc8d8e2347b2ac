// Removing the sources of a move, once their copies are on stable storage.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/unique_fd.h"
#include "failure.h"
#include "folder.h"

namespace fileop {

// A source folder as it will be found again: by path, and only if it is still
// the same folder.
struct Origin {
  std::string path;
  Identity id;
};

// Sources whose copies have their final names but may not be on disk yet.
// Bounded: when Full() says so, Flush() is due.
class RemovalBatch {
 public:
  using OnFailure = std::function<void(const std::string& path, const Failure& failure)>;

  // `st` is the source as it was when its copy was made; a source that is
  // another file by now, or has changed, stays.
  void Add(const std::shared_ptr<const Origin>& origin, std::string name, const struct stat& st);

  // An open folder of the destination that must be synced before. To be told
  // before anything is written there: errors of the volume are seen from then on.
  [[nodiscard]] int NeedsSync(const TargetFolder& folder);

  bool Full() const { return records_.size() >= kMaxRecords || bytes_ >= kMaxBytes; }
  bool empty() const { return records_.empty(); }

  // Syncs the destination, then removes the sources in the order they were
  // added; folders only when they are empty. `on_failure` hears of every source
  // that stays. -1 with the last error set when one does.
  [[nodiscard]] int Flush(const OnFailure& on_failure);

  // A batch as large is flushed; it bounds memory and what a crash leaves twice.
  static constexpr std::size_t kMaxRecords = 16384;
  static constexpr unsigned long long kMaxBytes = 1ULL << 30;

 private:
  struct Record {
    std::shared_ptr<const Origin> origin;
    std::string name;
    Identity id;
    bool folder;
    bool linked;  // has more names: each removal changes its ctime
    off_t size;
    timespec mtime;
    timespec ctime;
  };

  int Sync();
  static int Remove(const Record& record, int folder);

  std::vector<Record> records_;
  unsigned long long bytes_ = 0;
  std::vector<std::pair<dev_t, core::UniqueFd>> targets_;
};

// For sources whose entry has been reported as moved already: what then happens
// can only be told to the system log.
void LogKept(const std::string& path, const Failure& failure);

}  // namespace fileop
