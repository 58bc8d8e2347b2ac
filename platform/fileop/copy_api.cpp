#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <new>

#include "args.h"
#include "conflict.h"
#include "core/error.h"
#include "core/fs_type.h"
#include "entry.h"
#include "fileop/copy.h"
#include "ladder.h"
#include "pacer.h"
#include "regular_file.h"
#include "temp_name.h"
#include "tree_copy.h"
#include "vfs/vfs.h"

namespace fileop {
namespace {

// Both ends of one top-level path.
struct Ends {
  SourceFolder from;
  TargetFolder to;
  std::string name;
  std::string to_name;
};

int OpenEnds(const char* src, const char* dst, bool removes, Ends* ends) {
  OpenedParent from;
  OpenedParent to;
  if (OpenParent(src, Side::kSource, &from) < 0) return -1;
  if (OpenParent(dst, Side::kDestination, &to) < 0) return -1;
  ends->from.fd = std::move(from.dir);
  ends->from.path = std::move(from.dir_path);
  ends->name = std::move(from.name);
  ends->to.fd = std::move(to.dir);
  ends->to.path = std::move(to.dir_path);
  ends->to_name = std::move(to.name);
  if (DescribeSource(removes, &ends->from) < 0 || DescribeTarget(&ends->to) < 0) return -1;
  ends->from.fs_type = FsTypeOf(ends->from.fd.get());
  ends->to.fs_type = FsTypeOf(ends->to.fd.get());
  vfs::MountInfo mount;
  ends->to.remote = vfs::FindByFullPath(dst, &mount);
  return 0;
}

void CleanOnce(const Ends& ends, _TAVOCOPYARGSEX* args) {
  if (ends.to.remote || (args != nullptr && args->cleaned == ends.to.id)) return;
  CleanLeftovers(ends.to.fd.get());
  if (args != nullptr) args->cleaned = ends.to.id;
}

void LogKept(const std::string& path, const Failure& failure) {
  syslog(LOG_ERR, "%s was moved, but the source could not be removed: %s", path.c_str(),
         std::strerror(failure.err));
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

void Companions(const Request& request, const Ends& ends) {
  if (request.args == nullptr || request.args->copy_ea == nullptr) return;
  CarryCompanions(request.args->companions, request.args->copy_ea, ends.from, ends.name, ends.to,
                  ends.to_name);
}

int CarryFile(Request& request, Ends& ends) {
  Job job{request, ends.from, ends.name, ends.to, ends.to_name};
  struct stat st;
  if (::fstatat(ends.from.fd.get(), ends.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return Fail(errno, Side::kSource);
  }
  if (S_ISDIR(st.st_mode)) return FailWith(core::kErrFileExpected, EISDIR, Side::kSource);
  job.st = st;
  const TAVOCOPYOPTIONS& options = *request.options;
  const bool rename = request.removes && options.moveFlag != 0;
  if (CarryEntry(job, {rename && st.st_dev == ends.to.id.dev, nullptr}) < 0) return -1;
  ends.to_name = job.to_name;
  if (job.outcome == Outcome::kRenamed && options.progress != nullptr) {
    const auto* args = request.args;
    const bool asks = args != nullptr && args->dir_size != nullptr;
    options.progress(asks ? args->dir_size(job.src_path.c_str(), job.dst_path.c_str()) : 0, 0);
  }
  if (job.outcome == Outcome::kCopied && request.removes && RemoveLater(ends, job) < 0) return -1;
  if (job.outcome == Outcome::kCopied || job.outcome == Outcome::kRenamed) {
    Companions(request, ends);
  }
  return 0;
}

// A folder has no place inside itself.
bool IsWithin(const std::string& path, const std::string& folder) {
  return path == folder || path.starts_with(folder + "/");
}

int CarryFolder(Request& request, Ends& ends) {
  const std::string source = ends.from.path + "/" + ends.name;
  if (IsWithin(ends.to.path, source)) return FailWith(core::kErrExists, EINVAL, Side::kUnknown);
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
  Ends ends;
  if (OpenEnds(src, dst, request.removes, &ends) < 0) return -1;
  CleanOnce(ends, args);
  return carry(request, ends);
}

// The job behind a hook's arguments, if they are the ones that it was given.
Job* JobOf(Job* job, const char* src, const char* dst) {
  return job != nullptr && job->src_path == src && job->dst_path == dst ? job : nullptr;
}

// Copies outside of any hook.
int CopyAlone(const char* src, const char* dst, TAVOCOPYOPTIONS* options, _TAVOCOPYARGSEX* args,
              bool share_blocks) {
  TAVOCOPYOPTIONS own = *options;
  own.removeSourceFlag = 0;  // who calls this carries single files itself
  Request request(&own, args);
  Ends ends;
  if (OpenEnds(src, dst, false, &ends) < 0) return -1;
  Job job{request, ends.from, ends.name, ends.to, ends.to_name};
  job.SetPaths();
  if (OpenRegular(job) < 0) return -1;
  switch (ResolveConflict(job)) {
    case Verdict::kFail:
      return -1;
    case Verdict::kSkip:
      return 0;
    case Verdict::kGo:
      break;
  }
  return CopyRegular(job, {args, share_blocks});
}

bool SharesBlocks(int type) {
  return type == core::kFsBtrfs || type == core::kFsXfs || type == core::kFsZfs ||
         type == core::kFsOverlay || type == core::kFsNfs || type == core::kFsCifs;
}

}  // namespace
}  // namespace fileop

_TAVOCOPYARGSEX* TAVOCopyArgsExAlloc() { return new (std::nothrow) _TAVOCOPYARGSEX; }

void TAVOCopyArgsExFree(_TAVOCOPYARGSEX* args) {
  const std::unique_ptr<_TAVOCOPYARGSEX> owned(args);
  if (args == nullptr) return;
  const int saved = errno;
  (void)!args->removals.Flush(fileop::LogKept);
  errno = saved;
}

void TAVOCopyArgsExSetGetReadSize(_TAVOCOPYARGSEX* args, TAVOReadSizeHook hook) {
  args->read_size = hook;
}

void TAVOCopyArgsExSetReadWriteData(_TAVOCOPYARGSEX* args, TAVOReadWriteHook hook) {
  args->read_write = hook;
}

void TAVOCopyArgsExSetCopyFile(_TAVOCOPYARGSEX* args, TAVOCopyFileHook hook) {
  args->copy_file = hook;
}

void TAVOCopyArgsExSetCopyEA(_TAVOCOPYARGSEX* args, TAVOCopyEAHook hook) { args->copy_ea = hook; }

void TAVOCopyArgsExSetGetDirSize(_TAVOCOPYARGSEX* args, TAVODirSizeHook hook) {
  args->dir_size = hook;
}

int TAVOFileCopyEx(const char* src, const char* dst, TAVOCOPYOPTIONS* options,
                   _TAVOCOPYARGSEX* args) {
  return fileop::Carry(src, dst, options, args, fileop::CarryFile);
}

int TAVOFileCopyDirectoryEx(const char* src, const char* dst, TAVOCOPYOPTIONS* options,
                            _TAVOCOPYARGSEX* args) {
  return fileop::Carry(src, dst, options, args, fileop::CarryFolder);
}

int TAVOCopyFileExI(const char* src, const char* dst, TAVOCOPYOPTIONS* options, int /*srcFsType*/,
                    int /*dstFsType*/, int /*flags*/, void* pass) {
  if (src == nullptr || dst == nullptr || options == nullptr) {
    return fileop::Fail(EINVAL, fileop::Side::kUnknown);
  }
  fileop::Job* job = fileop::JobOf(static_cast<fileop::Job*>(pass), src, dst);
  if (job == nullptr) return fileop::CopyAlone(src, dst, options, nullptr, false);
  return fileop::CopyRegular(*job, {job->request.args, false});
}

int TAVOFileReflinkCopy(const char* src, const char* dst, TAVOCOPYOPTIONS* options,
                        _TAVOCOPYARGSEX* args) {
  if (src == nullptr || dst == nullptr || options == nullptr) {
    return fileop::Fail(EINVAL, fileop::Side::kUnknown);
  }
  fileop::Job* job = fileop::JobOf(fileop::CurrentJob(), src, dst);
  if (job == nullptr) return fileop::CopyAlone(src, dst, options, args, true);
  return fileop::CopyRegular(*job, {args, true});
}

int TAVOFileCopyReflinkIsEnabled(const char* src, const char* dst, TAVOCOPYOPTIONS* /*options*/,
                                 int srcFsType, int dstFsType, int /*flags*/, void* pass) {
  if (src == nullptr || dst == nullptr) return 0;
  const fileop::Job* job = fileop::JobOf(static_cast<fileop::Job*>(pass), src, dst);
  fileop::Ends ends;
  if (job == nullptr) {
    if (fileop::OpenEnds(src, dst, false, &ends) < 0) return 0;
    srcFsType = ends.from.fs_type;
    dstFsType = ends.to.fs_type;
  }
  if (srcFsType != dstFsType || !fileop::SharesBlocks(srcFsType)) return 0;
  const fileop::SourceFolder& from = job != nullptr ? job->from : ends.from;
  const fileop::TargetFolder& to = job != nullptr ? job->to : ends.to;
  // Subvolumes of one btrfs have devices of their own.
  if (from.id.dev != to.id.dev && srcFsType != core::kFsBtrfs) return 0;
  return fileop::MemoryOfPair(from.fd.get(), to.fd.get()).shares_no_blocks ? 0 : 1;
}

int TAVOCopyFileFdEx(int srcFd, int dstFd, long size, TAVOCopyProgress progress,
                     TAVOCopyCancel cancel, const _TAVOCOPYARGSEX* args) {
  if (srcFd < 0 || dstFd < 0) return fileop::Fail(EBADF, fileop::Side::kUnknown);
  fileop::Pacer pacer(progress, cancel, args != nullptr ? args->read_size : nullptr);
  fileop::DataJob data;
  data.src = srcFd;
  data.dst = dstFd;
  data.expected = size;
  fileop::Job* job = fileop::CurrentJob();
  const bool lent = job != nullptr && job->lent_src == srcFd && job->lent_dst == dstFd &&
                    ::lseek(srcFd, 0, SEEK_CUR) == 0 && ::lseek(dstFd, 0, SEEK_CUR) == 0;
  if (lent) {
    data.src_st = &job->st;
    data.dst_is_new = true;
    data.ahead = fileop::AheadData(*job);
  }
  if (fileop::MoveAllData(&data, &pacer) < 0) return -1;
  if (lent) job->end_proven = data.end_proven;
  return 0;
}
