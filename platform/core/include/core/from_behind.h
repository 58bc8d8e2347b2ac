// A long list worked from both its ends.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <limits>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "core/helper_thread.h"

namespace core {

// Works results out from the list's last item backwards, on a thread of its own, while the
// owner goes through the list from the first item on and takes what is ready. Whatever
// is not, the owner works out itself: all of it where no thread is to be had.
template <class Result>
class FromBehind {
 public:
  // Runs on the other thread, with an item's place in the list. Nothing where the owner
  // has to see for itself, as it must for every failure.
  using Work = std::function<std::optional<Result>(std::size_t)>;

  // `work` may use what outlives this object. Short lists are left to the owner.
  FromBehind(std::size_t count, Work work) : work_(std::move(work)) {
    if (count < kLong) return;
    results_.resize(count);
    try {
      thread_ = StartHelper([this] { Run(); });
    } catch (const std::system_error&) {
      // The owner does everything.
    }
  }
  ~FromBehind() {
    owner_ = kAtTheEnd;
    if (thread_.joinable()) thread_.join();
  }
  FromBehind(const FromBehind&) = delete;
  FromBehind& operator=(const FromBehind&) = delete;

  // The result of item `i`, if it is ready. To be called for each item once, in ascending order.
  std::optional<Result> Take(std::size_t i) {
    owner_.store(i + 1, std::memory_order_relaxed);
    if (i < ready_.load(std::memory_order_acquire)) return std::nullopt;
    return std::move(results_[i]);
  }

 private:
  // Fewer items take less time than a thread does.
  static constexpr std::size_t kLong = 128;
  static constexpr std::size_t kAtTheEnd = std::numeric_limits<std::size_t>::max();

  // The owner may be at the very item in hand, and then does not wait for it.
  void Run() {
    try {
      for (std::size_t i = results_.size(); i > owner_.load(std::memory_order_relaxed); --i) {
        results_[i - 1] = work_(i - 1);
        ready_.store(i - 1, std::memory_order_release);
      }
    } catch (const std::exception&) {
      // No memory: the owner will hear that for itself.
    }
  }

  Work work_;
  std::vector<std::optional<Result>> results_;
  std::atomic<std::size_t> owner_{0};          // items below are the owner's
  std::atomic<std::size_t> ready_{kAtTheEnd};  // items from here on are worked out
  std::thread thread_;
};

}  // namespace core
