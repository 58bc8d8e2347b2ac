// Notices workers that end without finishing their records.
//
// The launcher is the parent of every orphaned worker, so it learns of each end.
// It does not know whose worker it was beyond the uid, and it must not open a
// user's store as root; so it starts a look: a child that becomes the owner of the
// store, ends the records of dead workers, and reports whether unfinished records
// are left. While some are, the looks go on at growing intervals; that covers workers
// of an earlier launcher and records written after their worker's death.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace host {

// Result of a look, as an exit status.
enum LookStatus : int {
  kNothingLeft = 0,
  kUnfinishedLeft = 1,
  kLookFailed = 2,
};

// Becomes the owner of the user's state folder (when root) and ends the records of
// dead workers. For a process of its own.
LookStatus LookAfterUser(const std::string& user);

// Becomes the owner of the user's state folder, for good, when root. False when that is
// not possible or there is no such folder.
[[nodiscard]] bool BecomeOwnerOfState(const std::string& user);

// When to look after whom. Runs in the launcher, on one thread.
class WorkerWatch {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::milliseconds kAfterCleanEnd{1000};
  static constexpr std::chrono::milliseconds kFirstRepeat{1000};
  static constexpr std::chrono::milliseconds kLastRepeat{30000};

  // `start_look` starts a look and returns its pid, negative when it cannot.
  explicit WorkerWatch(std::function<pid_t(const std::string& user)> start_look);

  // Everyone with a store is due at once.
  void LookAtEveryone(Clock::time_point now);

  // A worker of that uid ended; `clean`: by itself, with status 0.
  void WorkerEnded(uid_t uid, bool clean, Clock::time_point now);

  // True when `pid` was a look.
  bool LookEnded(pid_t pid, int wait_status, Clock::time_point now);

  void StartDue(Clock::time_point now);

  // Milliseconds until StartDue has something to do, -1 for never.
  int TimeoutMs(Clock::time_point now) const;

 private:
  struct Look {
    Clock::time_point due = Clock::time_point::max();
    std::chrono::milliseconds repeat = kFirstRepeat;
    pid_t running = 0;
  };

  std::function<pid_t(const std::string&)> start_look_;
  std::map<std::string, Look> looks_;  // by user
};

}  // namespace host
