// Starting threads that leave all signals to the others.
#pragma once

#include <csignal>

namespace core {

// While it lives, the thread that made it takes no signal, and neither does, for all its
// life, a thread that it starts meanwhile. For the thread that made it only; keeps errno.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace core
