// A transfer between two servers: the download fills a pipe that the upload
// empties. The kernel's pipe is the bounded buffer.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <thread>

#include "cloud/cloud.h"
#include "core/error.h"
#include "core/unique_fd.h"
#include "signal_guard.h"

namespace TAVOCloud {
namespace {

// The first of the two sides to fail is the cause; the other one then only sees
// the pipe end.
class FirstFailure {
 public:
  // To be called before the failed side's end of the pipe is closed.
  void Report() {
    const int code = VLIBCErrGet() == core::kErrNone ? core::kErrSystem : VLIBCErrGet();
    int none = core::kErrNone;
    code_.compare_exchange_strong(none, code);
  }
  [[nodiscard]] int code() const { return code_; }

 private:
  std::atomic<int> code_{core::kErrNone};
};

}  // namespace

bool Cloud::CopyFile(Cloud* source, Cloud* dest, const std::string& sourcePath,
                     const std::string& destPath, std::uint64_t size, ProgressFn progress,
                     CancelFn cancel, ReadSizeFn readSize) {
  std::array<int, 2> ends{-1, -1};
  if (source == nullptr || dest == nullptr || source == dest ||
      pipe2(ends.data(), O_CLOEXEC) != 0) {
    VLIBCErrSetEx(core::kErrBadArgument, __FILE__, __LINE__);
    return false;
  }
  core::UniqueFd out(ends[0]);
  core::UniqueFd in(ends[1]);
  // An upload that fails closes its end of the pipe under the download.
  const NoBrokenPipeSignal guard;

  // The callbacks that count and pace belong to the calling thread, so only the
  // download has them; both sides ask whether to stop.
  FirstFailure failure;
  std::thread uploader([&] {
    if (!UploadFile(dest, destPath, out.get(), size, nullptr, cancel, nullptr)) failure.Report();
    out.reset();
  });
  if (!DownloadFile(source, sourcePath, in.get(), size, progress, cancel, readSize)) {
    failure.Report();
  }
  in.reset();
  uploader.join();
  if (failure.code() == core::kErrNone) return true;
  VLIBCErrSetEx(failure.code(), __FILE__, __LINE__);
  return false;
}

}  // namespace TAVOCloud
