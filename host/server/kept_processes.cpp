#include "kept_processes.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "bounds.h"

namespace host {
namespace {

constexpr std::chrono::milliseconds kWait{kKeptMs};

// Nothing was sent that it could answer, so there is something to read only when it is gone.
bool Waits(const core::UniqueFd& connection) {
  char byte = 0;
  return ::recv(connection.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

}  // namespace

core::UniqueFd KeptProcesses::Take(const std::string& user) {
  const std::lock_guard lock(mutex_);
  for (std::size_t i = kept_.size(); i-- > 0;) {
    if (kept_[i].user != user) continue;
    core::UniqueFd taken = std::move(kept_[i].connection);
    kept_.erase(kept_.begin() + static_cast<std::ptrdiff_t>(i));
    if (Waits(taken)) return taken;
  }
  return {};
}

void KeptProcesses::Keep(const std::string& user, core::UniqueFd connection) {
  const std::lock_guard lock(mutex_);
  const auto now = Clock::now();
  // The oldest stand first; whoever waited for too long has ended.
  const auto ended = [now](const Kept& kept) { return now - kept.since >= kWait; };
  auto first = std::find_if_not(kept_.begin(), kept_.end(), ended);
  if (first == kept_.begin() && kept_.size() >= kMaxKept) ++first;
  kept_.erase(kept_.begin(), first);
  kept_.push_back({user, std::move(connection), now});
}

}  // namespace host
