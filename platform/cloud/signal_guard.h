// Keeps a peer that closes its end from ending the process.
#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>

namespace TAVOCloud {

// While it lives, a write of this thread to a closed pipe or socket gets EPIPE,
// not the signal.
class NoBrokenPipeSignal {
 public:
  NoBrokenPipeSignal() {
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signal_, &before_);
  }
  ~NoBrokenPipeSignal() {
    if (sigismember(&before_, SIGPIPE) == 1) return;
    const int saved = errno;
    const timespec now{};
    sigtimedwait(&signal_, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = saved;
  }
  NoBrokenPipeSignal(const NoBrokenPipeSignal&) = delete;
  NoBrokenPipeSignal& operator=(const NoBrokenPipeSignal&) = delete;

 private:
  sigset_t signal_{};
  sigset_t before_{};
};

}  // namespace TAVOCloud
