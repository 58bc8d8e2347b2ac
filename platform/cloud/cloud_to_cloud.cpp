// A transfer between two servers: the download fills a pipe that the upload
// empties. The kernel's pipe is the bounded buffer.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <thread>

#include "cloud/cloud.h"
#include "core/error.h"
#include "core/helper_thread.h"
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

constexpr int kMostPasses = 3;

struct Passage {
  Cloud* source;
  Cloud* dest;
  const std::string& source_path;
  const std::string& dest_path;
  std::uint64_t size;
};

// Moves the whole file once; the core error of the first failure, or none.
int PassOnce(const Passage& file, ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return core::kErrSystem;
  core::UniqueFd out(ends[0]);
  core::UniqueFd in(ends[1]);

  // The callbacks that count and pace belong to the calling thread, so only the
  // download has them; both sides ask whether to stop.
  FirstFailure failure;
  std::thread uploader = core::StartHelper([&] {
    if (!Cloud::UploadFile(file.dest, file.dest_path, out.get(), file.size, nullptr, cancel,
                           nullptr)) {
      failure.Report();
    }
    out.reset();
  });
  if (!Cloud::DownloadFile(file.source, file.source_path, in.get(), file.size, progress, cancel,
                           readSize)) {
    failure.Report();
  }
  in.reset();
  uploader.join();
  return failure.code();
}

}  // namespace

bool Cloud::CopyFile(Cloud* source, Cloud* dest, const std::string& sourcePath,
                     const std::string& destPath, std::uint64_t size, ProgressFn progress,
                     CancelFn cancel, ReadSizeFn readSize) {
  if (source == nullptr || dest == nullptr || source == dest) {
    VLIBCErrSetEx(core::kErrBadArgument, __FILE__, __LINE__);
    return false;
  }
  // An upload that fails closes its end of the pipe under the download.
  const NoBrokenPipeSignal guard;
  const Passage file{source, dest, sourcePath, destPath, size};
  int code = PassOnce(file, progress, cancel, readSize);
  // A pipe cannot go back to where a broken upload stopped, so the file is passed
  // on from its start again. Nothing is counted twice.
  for (int pass = 1; pass < kMostPasses && code == core::kErrInputOutput; ++pass) {
    if (cancel != nullptr && cancel() != 0) break;
    code = PassOnce(file, nullptr, cancel, readSize);
  }
  if (code == core::kErrNone) return true;
  VLIBCErrSetEx(code, __FILE__, __LINE__);
  return false;
}

}  // namespace TAVOCloud
