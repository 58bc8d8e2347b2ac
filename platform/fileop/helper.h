// Threads that work ahead of and behind the calling thread: one, and more while the
// source's device has to be waited for. They never call a hook and end with the
// object.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace fileop {

// A piece of work that any thread may do. Done exactly once, whoever calls.
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
  // there is enough to do, or no thread can be started: the caller does it.
  [[nodiscard]] bool Post(const std::shared_ptr<Work>& work);

  // Wakes a thread for what was posted, or all of them while the device is waited
  // for. Waking costs more than a small piece of work, so it is done once for several.
  void Wake();

  // Whether posted work waits to be begun.
  bool HasWork() const { return queued_ > 0; }

  // Does one piece of posted work. False when there is none.
  bool LendHand();

  // Returns when all posted work is done; lends a hand meanwhile.
  void Drain();

  // As many threads as `most` from now on, whatever the device: reads wait for a server.
  void Widen(std::size_t most) { wide_ = most; }

  // Whether the latest reads had to wait for the device. Any thread may tell. A single one
  // says nothing: a few pages of a source that is in memory may have been given away.
  void TellSlow(bool slow) {
    const unsigned reads = slow ? waits_.load(std::memory_order_relaxed) + 1 : 0;
    waits_.store(reads, std::memory_order_relaxed);
    if (reads >= kSlowReads) waited_.store(true, std::memory_order_relaxed);
  }
  bool slow() const { return waits_.load(std::memory_order_relaxed) >= kSlowReads; }
  // Whether they ever had to.
  bool waited() const { return waited_.load(std::memory_order_relaxed); }

 private:
  bool Start(std::size_t threads);
  void Loop(bool first);
  std::shared_ptr<Work> Take();

  static constexpr std::size_t kMostQueued = 128;
  // As many reads as a device is given at once.
  static constexpr std::size_t kMostThreads = 8;
  static constexpr unsigned kSlowReads = 3;  // in a row

  std::mutex mutex_;
  std::condition_variable posted_;
  std::condition_variable idle_;
  std::deque<std::shared_ptr<Work>> queue_;
  std::atomic<std::size_t> queued_{0};  // queue_'s size, for looking without the lock
  std::size_t busy_ = 0;
  std::size_t sleeping_ = 0;
  bool stop_ = false;
  bool failed_ = false;
  std::size_t wide_ = 0;            // for the calling thread
  std::atomic<unsigned> waits_{0};  // reads in a row that had to wait
  std::atomic<bool> waited_{false};
  std::vector<std::thread> threads_;
};

// Work that is done by whoever claims it first, and can be waited for.
class OnceWork : public Work {
 public:
  explicit OnceWork(Helper* helper) : helper_(helper) {}

  // Does the work unless somebody else does, or has done, so.
  void Do() final;

  // Returns when it is done, by whomever; does other work while it waits.
  void Await();

 protected:
  virtual void Run() = 0;
  Helper* helper() const { return helper_; }

 private:
  enum State : int { kWaiting, kClaimed, kDone };

  Helper* helper_;
  std::atomic<int> state_{kWaiting};
};

}  // namespace fileop
