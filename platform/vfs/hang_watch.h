// Noticing that the server behind a mount hangs.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace vfs {

// Looks after one mount and its helper, for the process that watches over the helper. A
// call on a mount whose server hangs cannot be ended but by ending the helper, not even by
// killing who waits; so this bounds every call, whatever the helper's own time limits add
// up to: kQuietSeconds, `patience` and a second after the helper last moved data.
//
// A helper that moves data is never disturbed. One that does not is only suspected: the
// mount is asked, as long as some task of the user may wait for it.
class HangWatch {
 public:
  static constexpr int kQuietSeconds = 10;

  // `folder` is where the mount of `uid` stands, `patience` in seconds.
  HangWatch(std::string folder, uid_t uid, pid_t helper, int patience);
  ~HangWatch();
  HangWatch(const HangWatch&) = delete;
  HangWatch& operator=(const HangWatch&) = delete;

  // To be called about once a second. True when the server has not answered in time. Does not
  // wait.
  [[nodiscard]] bool Hangs();

 private:
  using Clock = std::chrono::steady_clock;

  void BeginAnew(Clock::time_point now, std::uint64_t moved);
  bool Answer(Clock::time_point now, std::uint64_t moved);

  std::string folder_;
  uid_t uid_;
  pid_t helper_;
  std::chrono::seconds patience_;
  Clock::time_point since_;  // the last sign of life, or the question
  std::uint64_t moved_ = 0;  // bytes in and out of the helper then
  pid_t question_ = 0;       // the process that asks
};

}  // namespace vfs
