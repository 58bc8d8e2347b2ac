// Connections to request processes that wait for their user's next call.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "core/unique_fd.h"

namespace host {

// A process that has only read its user's records stays for a while, since starting one
// costs several times as much as its answer. It has become that user for good; which
// calls it takes is its own decision (request_process.h). May be used by several threads.
class KeptProcesses {
 public:
  // One that waits for a call of the user; invalid when there is none.
  core::UniqueFd Take(const std::string& user);
  void Keep(const std::string& user, core::UniqueFd connection);

 private:
  using Clock = std::chrono::steady_clock;

  struct Kept {
    std::string user;
    core::UniqueFd connection;
    Clock::time_point since;
  };

  std::mutex mutex_;
  std::vector<Kept> kept_;  // the latest used last
};

}  // namespace host
