#include "retry.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace TAVOCloud {
namespace {

constexpr int kFirstPause = 250;  // milliseconds; doubled with each attempt
constexpr int kLongestPause = 4000;
constexpr long kLongestOrder = 10'000;

}  // namespace

bool PauseAfter(int attempt, Flow* flow, long ordered_seconds) {
  const int own = std::min(kFirstPause << (std::clamp(attempt, 1, 10) - 1), kLongestPause);
  const long ordered = std::min(std::clamp(ordered_seconds, 0L, 3600L) * 1000, kLongestOrder);
  const int pause = std::max(own, static_cast<int>(ordered));
  if (flow != nullptr) return flow->Pause(pause);
  std::this_thread::sleep_for(std::chrono::milliseconds(pause));
  return true;
}

}  // namespace TAVOCloud
