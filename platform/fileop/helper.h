// A second thread that works ahead of and behind the calling thread. It never
// calls a hook and ends with the object.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

namespace fileop {

// A piece of work that either thread may do. Done exactly once, whoever calls.
class Work {
 public:
  virtual ~Work() = default;
  virtual void Do() = 0;
};

// Waits for what the other thread will have done within some microseconds: going
// to sleep and being woken costs more. Gives up after a while.
template <typename Condition>
void SpinBriefly(Condition&& condition) {
  constexpr int kTurns = 100;
  for (int i = 0; i < kTurns && !condition(); ++i) std::this_thread::yield();
}

class Helper {
 public:
  Helper() = default;
  ~Helper();
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;

  // Hands work over; it is begun in the order in which it was posted. False when
  // the thread has enough to do, or cannot be started: the caller does it.
  [[nodiscard]] bool Post(const std::shared_ptr<Work>& work);

  // Wakes the thread for what was posted. Waking costs more than a small piece
  // of work, so it is done once for several.
  void Wake();

  // Returns when all posted work is done; lends a hand meanwhile.
  void Drain();

 private:
  bool Start();
  void Loop();

  static constexpr std::size_t kMostQueued = 64;

  std::mutex mutex_;
  std::condition_variable posted_;
  std::condition_variable idle_;
  std::deque<std::shared_ptr<Work>> queue_;
  std::atomic<std::size_t> queued_{0};  // queue_'s size, for looking without the lock
  bool busy_ = false;
  bool sleeping_ = false;
  bool stop_ = false;
  bool failed_ = false;
  std::thread thread_;
};

}  // namespace fileop
