#include <unistd.h>

#include "core/fs_type.h"
#include "fileop/copy.h"
#include "ladder.h"
#include "pacer.h"
#include "regular_file.h"
#include "top_level.h"

namespace fileop {
namespace {

// The job behind a hook's arguments, if they are the ones that it was given.
Job* JobOf(Job* job, const char* src, const char* dst) {
  return job != nullptr && job->src_path == src && job->dst_path == dst ? job : nullptr;
}

// Nothing has gone through the descriptors yet. Of a source that was read before, only
// what reached the destination counts.
bool AtBeginning(const Job& job, int src, int dst) {
  return ::lseek(dst, 0, SEEK_CUR) == 0 &&
         (!AheadData(job).empty() || ::lseek(src, 0, SEEK_CUR) == 0);
}

bool SharesBlocks(int type) {
  return type == core::kFsBtrfs || type == core::kFsXfs || type == core::kFsZfs ||
         type == core::kFsOverlay || type == core::kFsNfs || type == core::kFsCifs;
}

}  // namespace
}  // namespace fileop

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
    if (fileop::OpenEnds(src, dst, &ends) < 0) return 0;
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
                    fileop::AtBeginning(*job, srcFd, dstFd);
  if (lent) {
    data.src_st = &job->st;
    data.dst_is_new = true;
    data.ahead = fileop::AheadData(*job);
  }
  if (fileop::MoveAllData(&data, &pacer) < 0) return -1;
  if (lent) job->end_proven = data.end_proven;
  return 0;
}
