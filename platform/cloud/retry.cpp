#include "retry.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace TAVOCloud {
namespace {

constexpr int kPausesInPatience = 60;  // of the first length; doubled with each attempt
constexpr long kLongestOrder = 10'000;

bool WasReached(const Outcome& outcome) {
  return outcome.code != CURLE_COULDNT_CONNECT && outcome.code != CURLE_SSL_CONNECT_ERROR &&
         outcome.code != CURLE_OPERATION_TIMEDOUT;
}

}  // namespace

bool IsHang(const Outcome& outcome, int attempt) {
  return outcome.code == CURLE_OPERATION_TIMEDOUT && attempt > 1;
}

bool PauseAfter(int attempt, Flow* flow, long ordered_seconds, int patience) {
  const int first = std::max(patience, 1) * 1000 / kPausesInPatience;
  const int own = first << (std::clamp(attempt, 1, kMostAttempts - 1) - 1);
  const long ordered = std::min(std::clamp(ordered_seconds, 0L, 3600L) * 1000, kLongestOrder);
  const int pause = std::max(own, static_cast<int>(ordered));
  if (flow != nullptr) return flow->Pause(pause);
  std::this_thread::sleep_for(std::chrono::milliseconds(pause));
  return true;
}

bool WaitForAnother(const Outcome& outcome, bool passing, int attempt, const CurlHandle& curl,
                    long ordered_seconds) {
  Flow* flow = curl.watched();
  if (curl.hurries() || (flow != nullptr && flow->error() != 0)) return false;
  const bool begun = attempt > 1 || WasReached(outcome) || (flow != nullptr && flow->moved() > 0);
  // An upload has waited long, for what the server may do with a whole file.
  if (IsHang(outcome, curl.uploads() ? attempt + 1 : attempt)) return false;
  const int most = outcome.ok() ? kMostRefusals : kMostAttempts;
  if (!begun || !passing || attempt >= most) return false;
  return PauseAfter(attempt, flow, ordered_seconds, curl.patience());
}

}  // namespace TAVOCloud
