// Sessions of browsers: a cookie stands for a user.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace host {

struct Session {
  std::string user;
  std::string csrf;  // what every changing request must repeat in a header
  std::string name;  // tells sessions apart in logs and calls; no secret
};

// The live sessions, in memory. May be used by several threads at once.
class Sessions {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::hours kIdleLife{24};
  static constexpr std::size_t kMaxSessions = 1000;

  // Starts a session and returns the cookie's value; empty when no randomness
  // can be had. Beyond the limit the session idle for longest ends.
  std::string Start(const std::string& user, Clock::time_point now = Clock::now());

  // The session behind a cookie, which is thereby used.
  std::optional<Session> Find(const std::string& cookie, Clock::time_point now = Clock::now());

  void End(const std::string& cookie);

 private:
  struct Entry {
    Session session;
    Clock::time_point used;
  };

  void DropOld(Clock::time_point now);

  std::mutex mutex_;
  // By the digest of the cookie, so that a look-up's time tells nothing of it.
  std::map<std::string, Entry> entries_;
};

}  // namespace host
