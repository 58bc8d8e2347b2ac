// One file's data on its way between a descriptor and a server.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "cloud/cloud.h"

namespace TAVOCloud {

class WriteBehind;

// Moves the data in order, counts it, paces it and notices a stop. What goes
// over the wire a second time, after a broken connection, is counted once.
// The descriptor's position at the beginning is the file's start.
class Flow {
 public:
  Flow(int fd, std::uint64_t size, ProgressFn progress, CancelFn cancel, ReadSizeFn readSize);
  ~Flow();

  // From now on the data of a large file is written on a thread of its own, as far as there can
  // be one: call Flush before the file is said to be there.
  void WriteApart();
  // Waits for that thread. False when not all could be written, or when stopped.
  [[nodiscard]] bool Flush();

  // Takes bytes that came from the server. False when the transfer must end.
  [[nodiscard]] bool Put(const char* data, std::size_t length);
  // Gives the next bytes for the server, 0 at the end of `size`. Negative when
  // the transfer must end.
  [[nodiscard]] ssize_t Get(char* buffer, std::size_t room);
  // The next Get begins there. False when the descriptor cannot seek.
  [[nodiscard]] bool SeekTo(std::uint64_t offset);

  // Asks whether to stop.
  bool IsCancelled();
  // Waits, but not beyond a stop. False when stopped.
  [[nodiscard]] bool Pause(int milliseconds);

  // Permissions of the file behind the descriptor; those of any file when it is none.
  [[nodiscard]] mode_t Permissions() const;

  // Waits until all of `size` may be moved. False when stopped.
  [[nodiscard]] bool AwaitGrants();

  // When the file behind the descriptor was changed, in seconds since 1970; 0: not known.
  std::uint32_t ChangeTime() const;
  // The same for its last access.
  std::uint32_t AccessTime() const;

  std::uint64_t size() const { return size_; }
  std::uint64_t moved() const { return moved_; }
  // errno of the failure on this side: ECANCELED after a stop, 0 without one.
  int error() const { return error_; }

 private:
  bool Fail(int error);
  [[nodiscard]] bool WaitForGrant(std::uint64_t want);
  void Moved(std::size_t bytes);
  // Bytes taken by the file or by the thread that writes it; negative: the transfer must end.
  [[nodiscard]] ssize_t Write(const char* data, std::size_t length);

  int fd_;
  std::uint64_t size_;
  ProgressFn progress_;
  CancelFn cancel_;
  ReadSizeFn read_size_;
  off_t start_;  // -1: the descriptor cannot seek
  std::uint64_t moved_ = 0;
  std::uint64_t counted_ = 0;
  std::uint64_t granted_ = 0;
  int error_ = 0;
  std::unique_ptr<WriteBehind> writer_;
};

}  // namespace TAVOCloud
