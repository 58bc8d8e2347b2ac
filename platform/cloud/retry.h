// How often something is tried again that failed in passing, and after what pause.
#pragma once

#include <functional>

#include "curl_handle.h"
#include "failure.h"

namespace TAVOCloud {

constexpr int kMostAttempts = 6;  // over connections that break
constexpr int kMostRefusals = 4;  // by a server that cannot now

// Whether the server behind a connection that was made again gives no answer either: each
// further attempt would wait as long. One answer may be lost with its connection.
[[nodiscard]] bool IsHang(const Outcome& outcome, int attempt);

// Waits after the attempt of that number, counted from 1: longer each time, and as
// long as the server has ordered, within bounds. All pauses together take about half
// of `patience`, the seconds that an administrator wants to wait for a connection.
// Not beyond a stop of `flow`, which may be null; false then.
[[nodiscard]] bool PauseAfter(int attempt, Flow* flow, long ordered_seconds = 0, int patience = 15);

// Whether to send a request over HTTP once more after the attempt of that number,
// having waited. `passing`: the server may have overcome it a moment later. A server
// that was not to be reached in the first place is not asked again, nor one that is
// only asked to clean up after a stop.
[[nodiscard]] bool WaitForAnother(const Outcome& outcome, bool passing, int attempt,
                                  const CurlHandle& curl, long ordered_seconds);

// What a failed request may be sent again after. Only a refusal is sure to have
// changed nothing: a lost answer might have said that it was done.
enum class Again { kAfterAll, kAfterRefusal };

// Sends a request over HTTP again while that may help; the last answer.
template <typename Answer>
Answer SendUntilOver(const std::function<Answer(int attempt)>& send, Again again,
                     Failure (*explain)(const Answer&), const CurlHandle& curl) {
  for (int attempt = 1;; ++attempt) {
    Answer answer = send(attempt);
    const bool over = answer.Succeeded() || (again == Again::kAfterRefusal && !answer.ok());
    if (over ||
        !WaitForAnother(answer, explain(answer).broken, attempt, curl, answer.retry_after)) {
      return answer;
    }
  }
}

}  // namespace TAVOCloud
