#include "user_limits.h"

#include <algorithm>
#include <utility>

namespace host {
namespace {

constexpr double kBurstSeconds = 2;

}  // namespace

UserLimits::UserLimits(int per_second, int at_once) : rate_(per_second), at_once_(at_once) {}

UserLimits::Account& UserLimits::Of(const std::string& user, Clock::time_point now) {
  return accounts_.try_emplace(user, Account{rate_ * kBurstSeconds, now}).first->second;
}

bool UserLimits::Admit(const std::string& user, Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  Account& account = Of(user, now);
  const double passed = std::chrono::duration<double>(now - account.at).count();
  account.saved = std::min(rate_ * kBurstSeconds, account.saved + rate_ * std::max(passed, 0.0));
  account.at = now;
  if (account.saved < 1) return false;
  account.saved -= 1;
  return true;
}

UserLimits::Place::Place(UserLimits* limits, std::string user)
    : limits_(limits), user_(std::move(user)) {
  const std::lock_guard lock(limits_->mutex_);
  Account& account = limits_->Of(user_, Clock::now());
  taken_ = account.running < limits_->at_once_;
  if (taken_) ++account.running;
}

UserLimits::Place::~Place() {
  if (!taken_) return;
  const std::lock_guard lock(limits_->mutex_);
  --limits_->accounts_.at(user_).running;
}

}  // namespace host
