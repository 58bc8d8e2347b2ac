// The data hook: one file's bytes between any two places.
#include <unistd.h>

#include "cloud/behind.h"
#include "core/error.h"
#include "support/path_info.h"
#include "transfer/cache_mark.h"
#include "transfer/cloud_transfer.h"
#include "transfer/ea_call.h"
#include "transfer/fallback.h"
#include "transfer/remote_params.h"
#include "transfer/streams.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

int CopyDescriptors(const TransferJob& job) {
  return TAVOCopyFileFdEx(*job.srcFd, *job.dstFd, job.size, job.progress, job.cancel, job.args);
}

bool IsStillOnItsWay(const TransferJob& job) {
  return TAVOCloud::Behind::LastOf(job.dest.isVfs ? _destCloud : _srcCloud) != 0;
}

int TransferRemote(TransferJob& job) {
  switch (RunCloudTransfer(job)) {
    case CloudResult::kDone:
      if (!job.eaCall && !IsStillOnItsWay(job)) MarkCacheStale(job.dst);
      return 0;
    case CloudResult::kRefused:
      return -1;
    case CloudResult::kFailed:
      break;
  }
  return CopyAfterFailedTransfer(job);
}

int Transfer(TransferJob& job) {
  if (PrefersDescriptors(job)) {
    if (job.eaCall) return CarryCompanion(job);
    if (job.hasDescriptors()) {
      if (CopyDescriptors(job) == 0) return 0;
      job.descriptorsMoved = true;
    }
  }
  // Neither end is remote: there is no other way.
  if (!job.source.isVfs && !job.dest.isVfs) return -1;
  return TransferRemote(job);
}

}  // namespace
}  // namespace Fennox

int MVCPReadWriteDataEx(const char* src, const char* dst, int* srcFd, int* dstFd, long size,
                        TAVOCopyProgress progress, TAVOCopyCancel cancel,
                        const _TAVOCOPYARGSEX* args, bool eaCall) {
  if (src == nullptr || dst == nullptr) {
    VLIBCErrSetEx(core::kErrBadArgument, Fennox::kModuleName, 979);
    return -1;
  }
  Fennox::TransferJob job{src, dst, srcFd, dstFd, size, progress, cancel, args, eaCall, {}, {}};
  job.source.isVfs = WfmLibIsVFSFullPath(src);
  job.dest.isVfs = WfmLibIsVFSFullPath(dst);
  if (eaCall && access(src, F_OK) != 0) return 0;
  if (job.source.isVfs && !Fennox::FindSourceParams(job)) return -1;
  if (job.dest.isVfs && !Fennox::FindDestParams(job)) return -1;
  return Fennox::Transfer(job);
}

int MVCPReadWriteData(const char* src, const char* dst, int* srcFd, int* dstFd, long size,
                      TAVOCopyProgress progress, TAVOCopyCancel cancel,
                      const _TAVOCOPYARGSEX* args) {
  return MVCPReadWriteDataEx(src, dst, srcFd, dstFd, size, progress, cancel, args, false);
}
