#include "top_level.h"

#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <utility>

#include "answers.h"
#include "conflict.h"
#include "core/error.h"
#include "entry.h"
#include "regular_file.h"
#include "temp_name.h"
#include "tree_copy.h"

namespace fileop {
namespace {

void CleanOnce(const Ends& ends, _TAVOCOPYARGSEX* args) {
  if (args != nullptr && args->cleaned == ends.to.id) return;
  CleanLeftovers(ends.to.fd.get());
  if (args != nullptr) args->cleaned = ends.to.id;
}

// Sees to it that the source goes once its copy is safe. Later failures can only
// be logged: the entry has been reported as moved.
int RemoveLater(const Ends& ends, const Job& job) {
  _TAVOCOPYARGSEX* args = job.request.args;
  RemovalBatch own;
  RemovalBatch& batch = args != nullptr ? args->removals : own;
  if (batch.NeedsSync(ends.to) < 0) return -1;
  batch.Add(std::make_shared<Origin>(Origin{ends.from.path, ends.from.id}), job.name, job.st);
  if (args == nullptr) return batch.Flush([](const std::string&, const Failure&) {});
  if (batch.Full() && batch.Flush(LogKept) < 0 && StopsEverything(LatestFailure())) return -1;
  return 0;
}

void Companions(const Request& request, Ends& ends) {
  if (request.args == nullptr || request.args->copy_ea == nullptr) return;
  CarryCompanions(request.args->companions, request.args->copy_ea, ends.from, ends.name, ends.to,
                  ends.to_name);
}

// A folder has no place inside itself.
bool IsWithin(const std::string& path, const std::string& folder) {
  return path == folder || path.starts_with(folder + "/");
}

// After a failure of one entry: with its server gone or hanging, so will be all others.
int Explain(const char* src, const char* dst) {
  const Failure failure = LatestFailure();
  if (failure.err == ECANCELED || src == nullptr || dst == nullptr) return Report(failure);
  return Report(IsServerLost(failure, src, dst) ? ServerLost() : failure);
}

}  // namespace

int CarryFile(Request& request, Ends& ends) {
  Job job{request, ends.from, ends.name, ends.to, ends.to_name};
  struct stat st;
  if (::fstatat(ends.from.fd.get(), ends.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return Fail(errno, Side::kSource);
  }
  if (S_ISDIR(st.st_mode)) return FailWith(core::kErrFileExpected, EISDIR, Side::kSource);
  job.st = st;
  const TAVOCOPYOPTIONS& options = *request.options;
  const bool rename = request.removes && options.moveFlag != 0 && st.st_dev == ends.to.id.dev;
  if (request.removes && !rename && request.args != nullptr &&
      request.args->removals.NeedsSync(ends.to) < 0) {
    return -1;
  }
  job.SetPaths();
  const int renamed = rename ? TryRename(job) : 1;
  if (renamed < 0) return -1;
  if (renamed > 0 && (DescribeEnds(request.removes, &ends) < 0 || CarryEntry(job, {}) < 0)) {
    return -1;
  }
  ends.to_name = job.to_name;
  if (job.outcome == Outcome::kRenamed && options.progress != nullptr) {
    const auto* args = request.args;
    const bool asks = args != nullptr && args->dir_size != nullptr;
    options.progress(asks ? args->dir_size(job.src_path.c_str(), job.dst_path.c_str()) : 0, 0);
  }
  if (job.outcome == Outcome::kCopied && request.removes && RemoveLater(ends, job) < 0) return -1;
  if (job.outcome == Outcome::kCopied || job.outcome == Outcome::kRenamed) {
    // A copy may take as long as it likes.
    if (job.outcome == Outcome::kCopied) ends.from.no_companions = false;
    Companions(request, ends);
  }
  return 0;
}

int CarryFolder(Request& request, Ends& ends) {
  const std::string source = ends.from.path + "/" + ends.name;
  if (IsWithin(ends.to.path, source)) return FailWith(core::kErrExists, EINVAL, Side::kUnknown);
  if (DescribeEnds(request.removes, &ends) < 0) return -1;
  TreeCopy tree(request);
  Outcome outcome = Outcome::kNone;
  if (tree.Run(ends.from, ends.name, ends.to, ends.to_name, &outcome) < 0) return -1;
  Companions(request, ends);
  return 0;
}

int Carry(const char* src, const char* dst, TAVOCOPYOPTIONS* options, _TAVOCOPYARGSEX* args,
          int (*carry)(Request& request, Ends& ends)) {
  if (options == nullptr) return Fail(EINVAL, Side::kUnknown);
  Request request(options, args);
  if (request.cancelled()) return Fail(ECANCELED, Side::kUnknown);
  // Taken out of the handle, so that a hook may use the handle for another path.
  Ends ends;
  if (args != nullptr) ends = std::exchange(args->ends, {});
  if (OpenEnds(src, dst, &ends) < 0) return Explain(src, dst);
  CleanOnce(ends, args);
  const int result = carry(request, ends);
  if (result < 0) return Explain(src, dst);
  if (args != nullptr) args->ends = std::move(ends);
  return 0;
}

int CopyAlone(const char* src, const char* dst, TAVOCOPYOPTIONS* options, _TAVOCOPYARGSEX* args,
              bool share_blocks) {
  TAVOCOPYOPTIONS own = *options;
  own.removeSourceFlag = 0;  // who calls this carries single files itself
  Request request(&own, args);
  Ends ends;
  if (OpenEnds(src, dst, &ends) < 0 || DescribeEnds(false, &ends) < 0) return -1;
  Job job{request, ends.from, ends.name, ends.to, ends.to_name};
  job.SetPaths();
  if (OpenRegular(job) < 0) return -1;
  if (const auto result = SettleConflict(job)) return *result;
  return CopyRegular(job, {args, share_blocks});
}

}  // namespace fileop
