#include "helper.h"

#include <pthread.h>

#include <system_error>
#include <utility>

#include "core/helper_thread.h"

namespace fileop {

Helper::~Helper() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  posted_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

// False when there is no thread at all.
bool Helper::Start(std::size_t threads) {
  if (threads_.size() >= threads || failed_) return !threads_.empty();
  try {
    while (threads_.size() < threads) {
      threads_.push_back(core::StartHelper([this, first = threads_.empty()] { Loop(first); }));
    }
  } catch (const std::system_error&) {
    failed_ = true;
  }
  return !threads_.empty();
}

bool Helper::Post(const std::shared_ptr<Work>& work) {
  if (!Start(1)) return false;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (queue_.size() >= kMostQueued) return false;
  queue_.push_back(work);
  queued_ = queue_.size();
  return true;
}

void Helper::Wake() {
  const bool all = slow() || wide_ > 1;
  if (all) (void)Start(wide_ > 0 ? wide_ : kMostThreads);
  bool asleep = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    asleep = sleeping_ > 0 && !queue_.empty();
  }
  if (!asleep) return;
  if (all) {
    posted_.notify_all();
  } else {
    posted_.notify_one();
  }
}

// With the lock held.
std::shared_ptr<Work> Helper::Take() {
  if (queue_.empty()) return nullptr;
  std::shared_ptr<Work> work = std::move(queue_.front());
  queue_.pop_front();
  queued_ = queue_.size();
  return work;
}

bool Helper::LendHand() {
  if (queued_ == 0) return false;
  std::shared_ptr<Work> work;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    work = Take();
  }
  if (work == nullptr) return false;
  work->Do();
  return true;
}

void OnceWork::Do() {
  int expected = kWaiting;
  if (!state_.compare_exchange_strong(expected, kClaimed)) return;
  Run();
  state_.store(kDone, std::memory_order_release);
  state_.notify_all();
}

void OnceWork::Await() {
  Do();
  const auto done = [this] { return state_.load(std::memory_order_acquire) == kDone; };
  // Other reads may take longer than this one.
  while (!done() && !helper_->slow() && helper_->LendHand()) {
  }
  SpinBriefly(done);
  state_.wait(kClaimed, std::memory_order_acquire);
}

void Helper::Drain() {
  while (LendHand()) {
  }
  std::unique_lock<std::mutex> lock(mutex_);
  idle_.wait(lock, [this] { return busy_ == 0; });
}

void Helper::Loop(bool first) {
  ::pthread_setname_np(::pthread_self(), "fileop-helper");
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    if (first && queue_.empty() && !stop_) {
      lock.unlock();
      SpinBriefly([this] { return queued_ > 0; });
      lock.lock();
    }
    ++sleeping_;
    posted_.wait(lock, [this] { return stop_ || !queue_.empty(); });
    --sleeping_;
    std::shared_ptr<Work> work = Take();
    if (work == nullptr) return;
    ++busy_;
    lock.unlock();
    work->Do();
    work.reset();
    lock.lock();
    if (--busy_ == 0 && queue_.empty()) idle_.notify_all();
  }
}

}  // namespace fileop
