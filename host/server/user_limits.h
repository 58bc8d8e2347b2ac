// What one user may ask of the server, so that the others are served too.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace host {

// May be used by several threads at once.
class UserLimits {
 public:
  using Clock = std::chrono::steady_clock;

  // A user may save up two seconds' worth of requests for a burst.
  UserLimits(int per_second, int at_once);

  // Counts one request. False when it is one too many.
  [[nodiscard]] bool Admit(const std::string& user, Clock::time_point now = Clock::now());

  // One of a user's requests that are served at this moment.
  class Place {
   public:
    Place(UserLimits* limits, std::string user);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    bool taken() const { return taken_; }

   private:
    UserLimits* limits_;
    std::string user_;
    bool taken_;
  };

 private:
  struct Account {
    double saved;
    Clock::time_point at;
    int running = 0;
  };

  Account& Of(const std::string& user, Clock::time_point now);

  const double rate_;
  const int at_once_;
  std::mutex mutex_;
  std::map<std::string, Account> accounts_;  // users that exist, hence few
};

}  // namespace host
