// How long and how much, in one place.
#pragma once

#include <cstddef>

namespace host {

// Life of a request process once it has its request. "status" alone may wait a minute.
inline constexpr unsigned kRequestSeconds = 110;
// How long the front waits for an answer: a little longer, so that it sees the end.
inline constexpr int kAnswerMs = 115 * 1000;
// For handing a request or an answer between two processes of this machine.
inline constexpr int kTransferMs = 30 * 1000;

// A request process that only read may serve its user again: how long it waits for that,
// and how old it gets, so that the user's groups are looked up again.
inline constexpr int kKeptMs = 10 * 1000;
inline constexpr int kKeptLifeSeconds = 60;
// Processes that wait so at one time, about half a MiB each. With fewer than there are users who
// look at their tasks, each would be pushed out just before its user comes back.
inline constexpr int kMaxKept = 64;

// Life of a process that checks a password, and how long the front waits for it.
inline constexpr unsigned kLoginSeconds = 30;
inline constexpr int kLoginAnswerMs = 35 * 1000;
// Passwords that are checked at one time.
inline constexpr int kMaxLogins = 8;

inline constexpr std::size_t kMaxBody = 8U << 20;
inline constexpr int kMaxInFlight = 64;

}  // namespace host
