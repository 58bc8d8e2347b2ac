// Finished files that wait to replace others, so that one sync serves many.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "core/unique_fd.h"
#include "failure.h"
#include "folder.h"
#include "job.h"
#include "pending_file.h"

namespace fileop {

// All files of a batch go into one folder, which must outlive it. Each stands
// under a temporary name until its data is on disk; whoever stops in between
// leaves the old file as it was.
class ReplaceBatch {
 public:
  // Hears of every file that was taken: no failure when it has its name.
  using OnDone =
      std::function<void(const std::string& name, const struct stat& st, const Failure& failure)>;

  // To be told of the folder before a file is written there: errors of its
  // volume are seen from then on. -1 with the last error set.
  [[nodiscard]] int Prepare(const TargetFolder& folder);

  // Takes the job's file over, complete but for its name: 1 when taken, 0 when it
  // is to be named now, -1 with the last error set.
  [[nodiscard]] int Take(Job& job, PendingFile& file);

  bool Full() const { return files_.size() >= kMaxFiles || bytes_ >= limit_; }

  // Syncs the files and gives them their names, in the order they came.
  void Flush(const OnDone& done);

 private:
  struct Waiting {
    std::string name;  // in the source folder
    std::string to_name;
    struct stat st;  // of the source
    PendingFile file;
  };

  int Sync();
  static int Name(Waiting& waiting);

  // Old and new content take room at the same time, and a killed process leaves
  // what waits behind.
  static constexpr std::size_t kMaxFiles = 1024;
  static constexpr unsigned long long kMaxBytes = 64ULL << 20;
  // Up to here single syncs are cheaper than one of the whole volume.
  static constexpr std::size_t kFew = 3;

  std::vector<Waiting> files_;
  unsigned long long bytes_ = 0;
  unsigned long long limit_ = 0;
  core::UniqueFd volume_;
  dev_t volume_dev_ = 0;
};

}  // namespace fileop
