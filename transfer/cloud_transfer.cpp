#include "transfer/cloud_transfer.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "core/error.h"
#include "transfer/cloud_objects.h"
#include "transfer/file_open.h"
#include "transfer/kept_error.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

using TAVOCloud::Cloud;

constexpr int kKindFtp = 1;
constexpr int kKindDropbox = 3;

void Close(int* fd) {
  if (fd != nullptr) core::UniqueFd(std::exchange(*fd, -1)).reset();
}

std::uint64_t SizeOf(const TransferJob& job) { return static_cast<std::uint64_t>(job.size); }

CloudResult ResultOf(bool done) { return done ? CloudResult::kDone : CloudResult::kFailed; }

CloudResult Refuse(int line) {
  VLIBCErrSetEx(core::kErrSystem, kModuleName, line);
  return CloudResult::kRefused;
}

CloudResult Download(TransferJob& job) {
  Close(job.srcFd);
  if (!HaveSourceCloud(job)) return Refuse(1135);
  core::UniqueFd own;  // an extended-attribute call brings no descriptor
  if (job.dstFd == nullptr) own = OpenDestination(job.dst);
  const int fd = job.dstFd != nullptr ? *job.dstFd : own.get();
  if (job.descriptorsMoved) RestartDestination(fd);
  const bool done =
      fd >= 0 && Cloud::DownloadFile(_srcCloud, job.source.remotePath, fd, SizeOf(job),
                                     job.progress, job.cancel, MVCPTransferCallback);
  if (!done && own) {
    const KeptError keep;
    unlink(job.dst);
  }
  return ResultOf(done);
}

CloudResult Upload(TransferJob& job) {
  Close(job.dstFd);
  core::UniqueFd own;
  if (job.eaCall || job.srcFd == nullptr) {
    own = OpenSource(job.src);
    if (!own) {
      SetUnreachableError(1148, 1150);
      LogError(1152, "Failed to check [%s] [(%d)%s]", job.src, errno, std::strerror(errno));
      return CloudResult::kRefused;
    }
  }
  if (!HaveDestCloud(job)) return Refuse(1162);
  const int fd = own ? own.get() : *job.srcFd;
  if (job.descriptorsMoved) RestartSource(fd);
  return ResultOf(Cloud::UploadFile(_destCloud, job.dest.remotePath, fd, SizeOf(job), job.progress,
                                    job.cancel, MVCPTransferCallback));
}

CloudResult Logged(bool done, int line, const TransferJob& job) {
  if (!done) {
    LogError(line, "Failed to copy from %s to %s", job.source.remotePath.c_str(),
             job.dest.remotePath.c_str());
  }
  return ResultOf(done);
}

CloudResult ServerToServer(TransferJob& job) {
  Close(job.srcFd);
  Close(job.dstFd);
  const std::string& from = job.source.remotePath;
  const std::string& to = job.dest.remotePath;
  if (from.empty() || to.empty()) return CloudResult::kFailed;
  if (!HaveSourceCloud(job) || !HaveDestCloud(job)) return CloudResult::kFailed;

  for (Cloud* cloud : {_srcCloud, _destCloud}) cloud->StopWhen(job.cancel);
  const int srcKind = _srcCloud->Kind();
  const bool sameKind = srcKind == _destCloud->Kind();
  const std::string srcServerPath = _srcCloud->GetServerPathBySharePath(from);
  const std::string destServerPath = _destCloud->GetServerPathBySharePath(to);
  const bool sameServer = _srcCloud->GetServerID() == _destCloud->GetServerID();
  if (sameKind && srcKind == kKindDropbox) {
    if (sameServer) {
      return Logged(_destCloud->CopyOnServer(srcServerPath, destServerPath), 110, job);
    }
    return Logged(
        TAVOCloud::Dropbox::CopyFromRef(_destCloud, srcServerPath, destServerPath, _srcCloud), 117,
        job);
  }
  if (sameKind && srcKind != kKindFtp && sameServer) {
    return Logged(_srcCloud->CopyOnServer(srcServerPath, destServerPath), 123, job);
  }
  return Logged(Cloud::CopyFile(_srcCloud, _destCloud, from, to, SizeOf(job), job.progress,
                                job.cancel, MVCPTransferCallback),
                128, job);
}

}  // namespace

void RestartSource(int fd) { (void)lseek(fd, 0, SEEK_SET); }

void RestartDestination(int fd) {
  // Only what a failed transfer has written is dropped.
  if (lseek(fd, 0, SEEK_SET) == 0 && ftruncate(fd, 0) != 0) return;
}

CloudResult RunCloudTransfer(TransferJob& job) {
  const bool fromCurl = job.source.isVfs && job.source.useCurl;
  const bool toCurl = job.dest.isVfs && job.dest.useCurl;
  if (fromCurl && toCurl) return ServerToServer(job);
  if (fromCurl && !job.dest.isVfs) return Download(job);
  if (toCurl && !fromCurl) return Upload(job);
  return CloudResult::kFailed;
}

}  // namespace Fennox
