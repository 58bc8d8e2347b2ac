// A transfer between two servers: the download fills a pipe that the upload
// empties. The kernel's pipe is the bounded buffer.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <thread>

#include "cloud/cloud.h"
#include "core/error.h"
#include "core/unique_fd.h"

namespace TAVOCloud {
namespace {

// An upload that fails closes its end; the download must then get EPIPE, not
// the signal that would end the process.
class NoBrokenPipeSignal {
 public:
  NoBrokenPipeSignal() {
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signal_, &before_);
  }
  ~NoBrokenPipeSignal() {
    if (sigismember(&before_, SIGPIPE) == 1) return;
    const int saved = errno;
    const timespec now{};
    sigtimedwait(&signal_, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = saved;
  }
  NoBrokenPipeSignal(const NoBrokenPipeSignal&) = delete;
  NoBrokenPipeSignal& operator=(const NoBrokenPipeSignal&) = delete;

 private:
  sigset_t signal_{};
  sigset_t before_{};
};

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
