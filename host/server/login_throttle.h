// Slows down those who guess.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace host {

// Counts the failed logins of each address, or of each name. May be used by several threads at
// once.
class LoginThrottle {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr int kFailures = 10;
  static constexpr std::chrono::seconds kWindow{60};
  static constexpr std::size_t kMaxAddresses = 10000;

  // True when the address has had too many failures within the window.
  bool Blocked(const std::string& address, Clock::time_point now = Clock::now());

  // Notes a failed login. True when the address has had too many within the window.
  bool Failed(const std::string& address, Clock::time_point now = Clock::now());

 private:
  struct Count {
    Clock::time_point start;
    int failures = 0;
  };

  std::mutex mutex_;
  std::map<std::string, Count> counts_;
};

}  // namespace host
