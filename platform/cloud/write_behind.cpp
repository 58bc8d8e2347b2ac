#include "write_behind.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "core/helper_thread.h"

namespace TAVOCloud {
namespace {

constexpr std::size_t kRing = 1U << 20U;
constexpr std::size_t kPiece = 256U << 10U;  // divides the ring

}  // namespace

WriteBehind::WriteBehind(int fd) : fd_(fd), ring_(kRing) {
  thread_ = core::StartHelper([this] { Serve(); });
}

WriteBehind::~WriteBehind() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
  }
  filled_.notify_one();
  thread_.join();
}

std::span<char> WriteBehind::Room(std::chrono::milliseconds patience) {
  std::unique_lock<std::mutex> lock(mutex_);
  written_more_.wait_for(lock, patience,
                         [this] { return error_ != 0 || put_ - written_ < ring_.size(); });
  if (error_ != 0) return {};
  const std::size_t at = put_ % ring_.size();
  return {ring_.data() + at, std::min(ring_.size() - (put_ - written_), ring_.size() - at)};
}

void WriteBehind::Filled(std::size_t length) {
  bool work = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    put_ += length;
    work = HasWork();
  }
  if (work) filled_.notify_one();
}

bool WriteBehind::AwaitWritten(std::chrono::milliseconds patience) {
  std::unique_lock<std::mutex> lock(mutex_);
  flushing_ = true;
  filled_.notify_one();
  const bool done =
      written_more_.wait_for(lock, patience, [this] { return error_ != 0 || put_ == written_; });
  flushing_ = false;
  return done;
}

int WriteBehind::error() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return error_;
}

bool WriteBehind::HasWork() const {
  const std::uint64_t there = put_ - written_;
  return error_ == 0 && there > 0 && (there >= kPiece || flushing_ || ended_);
}

void WriteBehind::Serve() {
  (void)pthread_setname_np(pthread_self(), "cloud-writer");
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    filled_.wait(lock, [this] { return HasWork() || ended_; });
    if (!HasWork()) return;
    const std::size_t at = written_ % ring_.size();
    const std::size_t length =
        std::min<std::uint64_t>({put_ - written_, kPiece - at % kPiece, ring_.size() - at});
    lock.unlock();
    const ssize_t put = write(fd_, ring_.data() + at, length);
    const int problem = put < 0 ? errno : EIO;
    lock.lock();
    if (put > 0) {
      written_ += static_cast<std::uint64_t>(put);
    } else if (problem != EINTR) {
      error_ = problem;
    }
    written_more_.notify_one();
  }
}

}  // namespace TAVOCloud
