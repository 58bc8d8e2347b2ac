#include "core/helper_thread.h"

#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <utility>

namespace core {
namespace {

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

// The processors that the caller may use, and those of them that it does not run on; false
// where there are none of these.
bool OtherProcessors(cpu_set_t* all, cpu_set_t* others) {
  const int here = sched_getcpu();
  if (here < 0 || sched_getaffinity(0, sizeof *all, all) != 0) return false;
  *others = *all;
  CPU_CLR(static_cast<std::size_t>(here), others);
  return CPU_COUNT(others) > 0;
}

}  // namespace

std::thread StartHelper(std::function<void()> work) {
  const AllSignalsBlocked blocked;  // the new thread has the same mask
  std::thread helper(std::move(work));
  cpu_set_t all;
  cpu_set_t others;
  if (OtherProcessors(&all, &others)) {
    // Its number is not known to anybody but itself yet.
    const pthread_t handle = helper.native_handle();
    if (pthread_setaffinity_np(handle, sizeof others, &others) == 0) {
      pthread_setaffinity_np(handle, sizeof all, &all);
    }
  }
  return helper;
}

void MoveToAnotherProcessor(pid_t id) {
  const int saved = errno;
  cpu_set_t all;
  cpu_set_t others;
  if (OtherProcessors(&all, &others) && sched_setaffinity(id, sizeof others, &others) == 0) {
    sched_setaffinity(id, sizeof all, &all);
  }
  errno = saved;
}

}  // namespace core
