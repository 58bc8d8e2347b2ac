#include "helper.h"

#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <utility>

namespace fileop {

Helper::~Helper() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  posted_.notify_all();
  if (thread_.joinable()) thread_.join();
}

bool Helper::Start() {
  if (thread_.joinable()) return true;
  if (failed_) return false;
  // Signals are for the calling thread, whose waits they have to interrupt.
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    thread_ = std::thread([this] { Loop(); });
  } catch (const std::system_error&) {
    failed_ = true;
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return !failed_;
}

bool Helper::Post(const std::shared_ptr<Work>& work) {
  if (!Start()) return false;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (queue_.size() >= kMostQueued) return false;
  queue_.push_back(work);
  queued_ = queue_.size();
  return true;
}

void Helper::Wake() {
  bool asleep = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    asleep = sleeping_ && !queue_.empty();
  }
  if (asleep) posted_.notify_one();
}

void Helper::Drain() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!queue_.empty()) {
    const std::shared_ptr<Work> work = std::move(queue_.front());
    queue_.pop_front();
    queued_ = queue_.size();
    lock.unlock();
    work->Do();
    lock.lock();
  }
  idle_.wait(lock, [this] { return !busy_; });
}

void Helper::Loop() {
  ::pthread_setname_np(::pthread_self(), "fileop-helper");
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    if (queue_.empty() && !stop_) {
      lock.unlock();
      SpinBriefly([this] { return queued_ > 0; });
      lock.lock();
    }
    sleeping_ = true;
    posted_.wait(lock, [this] { return stop_ || !queue_.empty(); });
    sleeping_ = false;
    if (queue_.empty()) return;
    std::shared_ptr<Work> work = std::move(queue_.front());
    queue_.pop_front();
    queued_ = queue_.size();
    busy_ = true;
    lock.unlock();
    work->Do();
    work.reset();
    lock.lock();
    busy_ = false;
    if (queue_.empty()) idle_.notify_all();
  }
}

}  // namespace fileop
