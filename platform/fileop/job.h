// One entry on its way from one folder to another.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>

#include "core/error.h"
#include "core/unique_fd.h"
#include "folder.h"
#include "request.h"

namespace fileop {

class AheadFile;
class Finisher;
class PendingFile;
class ReplaceBatch;

enum class Outcome {
  kNone,     // nothing is at the destination
  kSkipped,  // what stood there stays, and so does the source
  kBehind,   // on its way to its server
  kWaiting,  // complete, and will soon replace what stands there
  kCopied,
  kRenamed,  // the source is gone by that
};

struct Job {
  Request& request;
  const SourceFolder& from;
  std::string name;
  TargetFolder& to;
  std::string to_name;
  bool free_names = false;  // a taken name may be exchanged for a free one

  core::UniqueFd src{};  // of a regular file
  struct stat st {};     // the source before anything was read
  bool replace = false;  // what stands under to_name is to be replaced
  Outcome outcome = Outcome::kNone;

  // While the data hook runs: the descriptors it was given.
  int lent_src = -1;
  int lent_dst = -1;
  bool end_proven = false;  // the destination holds exactly the source's bytes

  // Helpers of the tree that the entry belongs to, or null.
  AheadFile* ahead = nullptr;  // what was read of the source before
  Finisher* finisher = nullptr;
  ReplaceBatch* replacements = nullptr;

  bool may_stay_behind = false;            // the data hook may leave it on its way
  bool name_is_free = false;               // nobody but this walk gives names in the folder
  bool unopened = false;                   // the data hook fetches the source, and `st` is known
  unsigned long long behind = 0;           // number of what it has left so
  std::shared_ptr<PendingFile> pending{};  // the copy of what is fetched so

  std::string src_path{};  // as hooks are told
  std::string dst_path{};

  void SetPaths() {
    src_path = from.path + "/" + name;
    dst_path = to.path + "/" + to_name;
  }
};

// The job whose hook is running on this thread, so that calls which the hook
// makes without `pass` find their folders; null outside of hooks.
Job* CurrentJob();

class JobScope {
 public:
  explicit JobScope(Job* job);
  ~JobScope();
  JobScope(const JobScope&) = delete;
  JobScope& operator=(const JobScope&) = delete;

 private:
  Job* before_;
};

// Runs a hook and takes down why it failed. A hook that succeeds leaves the last
// error alone.
template <typename Hook>
int CallHook(Job& job, Hook&& hook) {
  const int before = VLIBCErrGet();
  ClearFailure();
  int result = 0;
  {
    const JobScope scope(&job);
    result = hook();
  }
  if (result >= 0) {
    RestoreCode(before);
    return 0;
  }
  if (job.request.cancelled()) return Fail(ECANCELED, Side::kUnknown);
  return Report(LatestFailure());
}

}  // namespace fileop
