#include "host/cli/interrupt.h"

#include <atomic>
#include <csignal>

namespace cli {
namespace {

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "written by a signal handler");

extern "C" void OnInterrupt(int) { interrupted.store(true); }

}  // namespace

void CatchInterrupt(CallsInProgress calls) {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  // A request that was sent must be read to its end, or its task id is lost.
  const bool restart = calls == CallsInProgress::kGoOn;
  action.sa_flags = static_cast<int>(SA_RESETHAND | (restart ? SA_RESTART : 0U));
  sigaction(SIGINT, &action, nullptr);
}

bool Interrupted() { return interrupted.load(); }

}  // namespace cli
