#include "flow.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <system_error>
#include <thread>

#include "write_behind.h"

namespace TAVOCloud {
namespace {

// Asked for at once, so that pacing costs little and a stop still comes through.
constexpr std::uint64_t kLargestRequest = 1U << 20U;
constexpr int kPauseStep = 50;
constexpr std::uint64_t kLargeFile = 4U << 20U;  // a thread costs less than it gives
constexpr std::chrono::milliseconds kWriterStep{100};

// 0 when it does not fit.
std::uint32_t InSeconds(const timespec& time) {
  const bool fits = time.tv_sec > 0 && time.tv_sec <= std::numeric_limits<std::uint32_t>::max();
  return fits ? static_cast<std::uint32_t>(time.tv_sec) : 0;
}

}  // namespace

Flow::Flow(int fd, std::uint64_t size, ProgressFn progress, CancelFn cancel, ReadSizeFn readSize)
    : fd_(fd),
      size_(size),
      progress_(progress),
      cancel_(cancel),
      read_size_(readSize),
      start_(lseek(fd, 0, SEEK_CUR)) {}

Flow::~Flow() = default;

// What ends early, a pipe for one, is written as before: its other end may have gone.
void Flow::WriteApart() {
  struct stat st {};
  if (size_ < kLargeFile || fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) return;
  try {
    writer_ = std::make_unique<WriteBehind>(fd_);
  } catch (const std::system_error&) {
    writer_ = nullptr;  // the user may have no more threads
  }
}

bool Flow::Flush() {
  if (writer_ == nullptr) return true;
  while (!writer_->AwaitWritten(kWriterStep)) {
    if (IsCancelled()) return false;
  }
  return writer_->error() == 0 || Fail(writer_->error());
}

ssize_t Flow::Write(const char* data, std::size_t length) {
  if (writer_ == nullptr) {
    const ssize_t put = write(fd_, data, length);
    if (put < 0 && errno == EINTR) return 0;
    if (put <= 0) Fail(put < 0 ? errno : EIO);
    return put > 0 ? put : -1;
  }
  const std::span<char> room = writer_->Room(kWriterStep);
  if (room.empty()) {
    const int error = writer_->error();
    if (error == 0) return 0;
    Fail(error);
    return -1;
  }
  const std::size_t taken = std::min(length, room.size());
  std::memcpy(room.data(), data, taken);
  writer_->Filled(taken);
  return static_cast<ssize_t>(taken);
}

mode_t Flow::Permissions() const {
  constexpr mode_t kAnyFile = 0644;
  struct stat st {};
  return fstat(fd_, &st) == 0 && S_ISREG(st.st_mode) ? st.st_mode & 0777 : kAnyFile;
}

std::uint32_t Flow::ChangeTime() const {
  struct stat st {};
  return fstat(fd_, &st) == 0 ? InSeconds(st.st_mtim) : 0;
}

std::uint32_t Flow::AccessTime() const {
  struct stat st {};
  return fstat(fd_, &st) == 0 ? InSeconds(st.st_atim) : 0;
}

bool Flow::AwaitGrants() {
  for (std::uint64_t left = size_; left > 0; left -= std::min(left, granted_)) {
    granted_ = 0;
    if (IsCancelled() || !WaitForGrant(left)) return false;
  }
  granted_ = 0;
  return !IsCancelled();
}

bool Flow::Fail(int error) {
  if (error_ == 0) error_ = error;
  return false;
}

bool Flow::IsCancelled() {
  if (error_ != ECANCELED && cancel_ != nullptr && cancel_() != 0) error_ = ECANCELED;
  return error_ == ECANCELED;
}

bool Flow::Pause(int milliseconds) {
  for (int left = milliseconds; left > 0; left -= kPauseStep) {
    if (IsCancelled()) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(std::min(left, kPauseStep)));
  }
  return !IsCancelled();
}

bool Flow::WaitForGrant(std::uint64_t want) {
  if (read_size_ == nullptr) {
    granted_ = want;
    return true;
  }
  while (granted_ == 0) {
    const long long answer = read_size_(std::min(want, kLargestRequest));
    if (answer < 0) return Fail(ECANCELED);
    granted_ = static_cast<std::uint64_t>(answer);
    if (granted_ == 0 && !Pause(10)) return false;
  }
  return true;
}

void Flow::Moved(std::size_t bytes) {
  granted_ -= std::min<std::uint64_t>(granted_, bytes);
  moved_ += bytes;
  if (moved_ <= counted_) return;
  if (progress_ != nullptr) progress_(moved_ - counted_, 0);
  counted_ = moved_;
}

bool Flow::Put(const char* data, std::size_t length) {
  while (length > 0) {
    const std::uint64_t left = size_ > moved_ ? size_ - moved_ : 0;
    if (IsCancelled() || !WaitForGrant(std::max<std::uint64_t>(left, length))) return false;
    const ssize_t put = Write(data, std::min<std::uint64_t>(length, granted_));
    if (put < 0) return false;
    data += put;
    length -= static_cast<std::size_t>(put);
    Moved(static_cast<std::size_t>(put));
  }
  return true;
}

ssize_t Flow::Get(char* buffer, std::size_t room) {
  const std::uint64_t left = size_ - std::min(size_, moved_);
  if (left == 0) return 0;
  for (;;) {
    if (IsCancelled() || !WaitForGrant(left)) return -1;
    const ssize_t got =
        read(fd_, buffer, std::min({left, granted_, static_cast<std::uint64_t>(room)}));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      Fail(got < 0 ? errno : EIO);  // the file has become shorter
      return -1;
    }
    Moved(static_cast<std::size_t>(got));
    return got;
  }
}

bool Flow::SeekTo(std::uint64_t offset) {
  if (offset != moved_) {
    if (!Flush()) return false;
    if (start_ < 0 || lseek(fd_, start_ + static_cast<off_t>(offset), SEEK_SET) < 0) return false;
    moved_ = offset;
  }
  return true;
}

}  // namespace TAVOCloud
