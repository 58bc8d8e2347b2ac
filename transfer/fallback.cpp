#include "transfer/fallback.h"

#include <cerrno>
#include <cstring>

#include "core/error.h"
#include "transfer/cloud_objects.h"
#include "transfer/cloud_transfer.h"
#include "transfer/file_open.h"
#include "transfer/streams.h"
#include "webapi/log.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

constexpr int kNoMoreConnections = 40;

bool IsFtpTransfer(const TransferJob& job) {
  const TransferSide& source = job.source;
  const TransferSide& dest = job.dest;
  if (source.isFtpLike()) return dest.isFtpLike() || dest.protocol.empty();
  return dest.isFtpLike() && source.protocol.empty();
}

bool LacksConnection(const TAVOCloud::Cloud* cloud) {
  return cloud != nullptr && cloud->GetErrorCode() == kNoMoreConnections;
}

// Log and error numbers of a failed reopening.
struct ReopenLines {
  int inputOutput;
  int hostDown;
  int notPermitted;
  int logged;
  int other;
};

bool Keep(core::UniqueFd opened, const char* path, const ReopenLines& lines, int& fd) {
  if (opened) {
    fd = opened.release();
    return true;
  }
  if (SetUnreachableError(lines.hostDown, lines.inputOutput)) return false;
  if (errno == EACCES) {
    VLIBCErrSetEx(core::kErrNotPermitted, kModuleName, lines.notPermitted);
  } else {
    LogError(lines.logged, "failed to check [%s] [(%d)%s]", path, errno, std::strerror(errno));
    VLIBCErrSetEx(core::kErrCannotOpen, kModuleName, lines.other);
  }
  return false;
}

bool ReopenSource(TransferJob& job, bool bothUseCurl) {
  if (job.srcFd == nullptr) return true;
  if (*job.srcFd >= 0) {
    RestartSource(*job.srcFd);
    return true;
  }
  if (!job.source.useCurl || (job.dest.isVfs && !bothUseCurl)) return true;
  return Keep(OpenSource(job.src), job.src, {1199, 1201, 1203, 1205, 1206}, *job.srcFd);
}

bool ReopenDestination(TransferJob& job, bool bothUseCurl) {
  if (job.dstFd == nullptr) return true;
  if (*job.dstFd >= 0) {
    RestartDestination(*job.dstFd);
    return true;
  }
  if (!job.dest.useCurl || (job.source.isVfs && !bothUseCurl)) return true;
  return Keep(OpenDestination(job.dst), job.dst, {1215, 1217, 1219, 1221, 1222}, *job.dstFd);
}

}  // namespace

int CopyAfterFailedTransfer(TransferJob& job) {
  if (!IsFtpTransfer(job)) return -1;
  const bool lacksConnection = LacksConnection(_srcCloud) || LacksConnection(_destCloud);
  DropClouds();
  if (!lacksConnection || job.eaCall || RefuseStreaming(job)) return -1;

  const bool bothUseCurl = job.source.useCurl && job.dest.useCurl;
  if (!ReopenSource(job, bothUseCurl) || !ReopenDestination(job, bothUseCurl)) return -1;
  if (!job.hasDescriptors()) return -1;
  return TAVOCopyFileFdEx(*job.srcFd, *job.dstFd, job.size, job.progress, job.cancel, job.args);
}

}  // namespace Fennox
