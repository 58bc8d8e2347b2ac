// A file's data written by a thread of its own while the next comes in.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

namespace TAVOCloud {

// Keeps the order; holds at most 1 MiB. The kernel's two copies, out of the socket and into the
// file, go on at the same time, and the file gets pieces larger than the transfer library hands
// out. For one calling thread.
class WriteBehind {
 public:
  // Writes to `fd`, which stays the caller's. Throws std::system_error without a thread for it.
  explicit WriteBehind(int fd);
  // Waits until everything is written, or cannot be.
  ~WriteBehind();
  WriteBehind(const WriteBehind&) = delete;
  WriteBehind& operator=(const WriteBehind&) = delete;

  // Where the next data goes; empty when there is no room within `patience`, or no use in more.
  [[nodiscard]] std::span<char> Room(std::chrono::milliseconds patience);
  // The first `length` bytes of that room are data now.
  void Filled(std::size_t length);
  // False when not all is written within `patience`; true after a failure, too.
  [[nodiscard]] bool AwaitWritten(std::chrono::milliseconds patience);
  // errno of the write that failed; 0 without one.
  int error() const;

 private:
  void Serve();
  bool HasWork() const;

  const int fd_;
  std::vector<char> ring_;
  mutable std::mutex mutex_;
  std::condition_variable filled_;
  std::condition_variable written_more_;
  std::uint64_t put_ = 0;      // bytes taken in all,
  std::uint64_t written_ = 0;  // and those in the file
  bool flushing_ = false;      // what is there is written without waiting for a whole piece
  bool ended_ = false;
  int error_ = 0;
  std::thread thread_;
};

}  // namespace TAVOCloud
