#include "login_throttle.h"

namespace host {

bool LoginThrottle::Blocked(const std::string& address, Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  const auto found = counts_.find(address);
  return found != counts_.end() && now - found->second.start <= kWindow &&
         found->second.failures >= kFailures;
}

bool LoginThrottle::Failed(const std::string& address, Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  if (counts_.size() >= kMaxAddresses) {
    std::erase_if(counts_, [&](const auto& item) { return now - item.second.start > kWindow; });
    if (counts_.size() >= kMaxAddresses) return true;
  }
  Count& count = counts_[address];
  if (count.failures == 0 || now - count.start > kWindow) count = Count{now, 0};
  return ++count.failures > kFailures;
}

}  // namespace host
