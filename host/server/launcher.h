// The process that starts all others: request processes, and the looks after workers.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <set>
#include <vector>

#include "core/unique_fd.h"
#include "frames.h"
#include "plugin.h"
#include "supervision.h"

namespace host {

// Runs in a process of its own with a single thread. Request processes and, as their
// orphans, workers are its children. It ends when the front closes its end of the
// control socket, and running workers go on.
class Launcher {
 public:
  // `control`: a message-keeping socket on which each message brings the connection of
  // one request. `idle`: how many request processes are kept ready.
  Launcher(core::UniqueFd control, const Plugin& plugin, std::size_t idle);

  // Ends the process.
  [[noreturn]] void Run();

 private:
  using Clock = WorkerWatch::Clock;

  struct Idle {
    pid_t pid;
    core::UniqueFd channel;  // brings the child its connection; closed: the child ends
  };

  void SetUpSignals();
  void ReadSignals();
  void ReapChildren();
  void Ended(pid_t pid, uid_t uid, int wait_status);
  void ReadControl();
  void HandOver(core::UniqueFd connection);
  void RunErrand(Errand errand, core::UniqueFd connection);
  void StartErrand(core::UniqueFd connection, void (*serve)(core::UniqueFd));
  // Ends the process; mounts that no task uses end with it.
  [[noreturn]] static void End();
  bool NeedsRefill() const;
  Clock::time_point RefillTime() const;
  void Refill();
  int TimeoutMs() const;
  // In the child, 0 and nothing of the launcher is left open.
  pid_t Fork();
  pid_t StartLook(const std::string& user);

  core::UniqueFd control_;
  core::UniqueFd signals_;
  const Plugin& plugin_;
  std::size_t wanted_idle_;
  std::vector<Idle> idle_;
  std::set<pid_t> busy_;
  WorkerWatch watch_;
  Clock::time_point refill_after_{};
  Clock::time_point quiet_after_{};
};

}  // namespace host
