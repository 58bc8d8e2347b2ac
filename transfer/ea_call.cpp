#include "transfer/ea_call.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/path_info.h"
#include "transfer/file_open.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

bool CopyCompanion(const TransferJob& job) {
  if (MVCPCopyFileFd(job.src, job.dst, job.size, job.progress, job.cancel, job.args) != 0) {
    return false;
  }
  (void)chmod(job.dst, kCopyMode);
  return true;
}

// A source may go only when its copy is on stable storage.
bool IsOnStableStorage(const char* path) {
  const core::UniqueFd file = OpenSource(path);
  return file && fsync(file.get()) == 0;
}

void MoveCompanion(const TransferJob& job) {
  if (std::rename(job.src, job.dst) == 0) {
    (void)chmod(job.dst, kCopyMode);
  } else if (errno != EXDEV) {
    LogError(1091, "Failed to cp -f %s to %s. %s", job.src, job.dst, std::strerror(errno));
  } else if (CopyCompanion(job) && IsOnStableStorage(job.dst)) {
    unlink(job.src);
  }
}

}  // namespace

int CarryCompanion(const TransferJob& job) {
  if (WfmLibIsCloudVFSFullPath(job.dst)) return 0;
  if (_copyOptions.moveFlag == 1) {
    MoveCompanion(job);
  } else if (!CopyCompanion(job)) {
    LogError(1102, "Failed to cp -f %s to %s. %s", job.src, job.dst, std::strerror(errno));
  }
  return 0;
}

int MVCPReadWriteDataCallback(const char* src, const char* dst) {
  if (dst != nullptr && WfmLibIsCloudVFSFullPath(dst)) return 0;
  struct stat status {};
  const bool known = src != nullptr && stat(src, &status) == 0;
  return MVCPReadWriteDataEx(src, dst, nullptr, nullptr, known ? status.st_size : 0,
                             _copyOptions.progress, _copyOptions.isCancelled, _copyArgs, true);
}

}  // namespace Fennox
