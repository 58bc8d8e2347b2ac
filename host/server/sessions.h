// Sessions: a secret that a browser or a script holds stands for a user.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace host {

struct Session {
  std::string user;
  std::string csrf;  // what every changing request with a cookie must repeat in a header
  std::string name;  // tells sessions apart in logs and calls; no secret
};

// How a session's secret comes with a request. One kind never passes for the other: a
// browser sends cookies by itself, for other sites' pages too, and never bearers.
enum class SessionKind : int { kCookie = 0, kBearer = 1 };

// The live sessions, in a file, so that they outlive the server. The file holds digests
// of the secrets, never a secret. May be used by several threads at once.
class Sessions {
 public:
  using Clock = std::chrono::system_clock;

  static constexpr int kMaxOfUser = 100;

  Sessions();
  ~Sessions();
  Sessions(const Sessions&) = delete;
  Sessions& operator=(const Sessions&) = delete;

  // `idle`: an unused session ends after it; `life`: any session does. Makes the file when
  // it is missing (mode 0600). False with words in *err.
  [[nodiscard]] bool Open(const std::string& file, std::chrono::seconds idle,
                          std::chrono::seconds life, std::string* err);

  // Starts a session and returns its secret; empty when it cannot be kept or no
  // randomness can be had. Beyond kMaxOfUser the user's session idle for longest ends.
  std::string Start(const std::string& user, SessionKind kind,
                    Clock::time_point now = Clock::now());

  // The session behind a secret, which is thereby used.
  std::optional<Session> Find(const std::string& secret, SessionKind kind,
                              Clock::time_point now = Clock::now());

  // False when the store cannot be written: the session goes on.
  [[nodiscard]] bool End(const std::string& secret);

  // The same for all sessions of a user, of either kind.
  [[nodiscard]] bool EndAll(const std::string& user);

 private:
  class Store;

  std::mutex mutex_;
  std::unique_ptr<Store> store_;
  std::int64_t idle_ = 0;
  std::int64_t life_ = 0;
};

}  // namespace host
