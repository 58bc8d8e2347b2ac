#include "transfer/streams.h"

#include "support/path_info.h"
#include "transfer/remote_params.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

// Largest file that an FTP source gives through its mount: one byte under 10 MiB.
constexpr long kLargestMountRead = 0x9FFFFF;

}  // namespace

bool PrefersDescriptors(const TransferJob& job) {
  const TransferSide& source = job.source;
  const TransferSide& dest = job.dest;
  if (WasRefusedStreaming(job)) return true;
  if (!source.useCurl && !dest.useCurl) return true;
  if (!dest.protocol.empty() && !dest.isFtpLike()) {
    return source.isFtpLike() && job.singleConnection && dest.protocol == "sftp";
  }
  return source.isFtpLike() && (job.size <= kLargestMountRead || job.singleConnection);
}

bool WasRefusedStreaming(const TransferJob& job) {
  return _streamRefused && _streamedPath == job.dst;
}

bool RefuseStreaming(const TransferJob& job) {
  _streamRefused = _streamedPath == job.dst;
  return _streamRefused;
}

int MVCPStreamsCallback(const char* src, const char* dst, long size) {
  if (src == nullptr || dst == nullptr) return 0;
  TransferJob job{src, dst, nullptr, nullptr, size, nullptr, nullptr, nullptr, false, {}, {}};
  if (WasRefusedStreaming(job)) return 0;
  _streamedPath.clear();
  _streamRefused = false;
  job.source.isVfs = WfmLibIsVFSFullPath(src);
  job.dest.isVfs = WfmLibIsVFSFullPath(dst);
  if (!job.dest.isVfs) return 0;
  // What cannot be told is left to the data hook, which also says why.
  if (!LookAtParams(job) || !job.dest.useCurl || PrefersDescriptors(job)) return 0;
  _streamedPath = dst;
  return 1;
}

}  // namespace Fennox
