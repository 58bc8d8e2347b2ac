#include "pacer.h"

#include <time.h>

#include <algorithm>
#include <cerrno>

#include "failure.h"

namespace fileop {
namespace {

constexpr long long kSmallestPiece = 64 << 10;
constexpr long long kLargestPiece = 8 << 20;
constexpr std::int64_t kMillisecond = 1'000'000;

std::int64_t Now() {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

}  // namespace

int Pacer::CheckCancel() const {
  if (cancel_ == nullptr || cancel_() == 0) return 0;
  return Fail(ECANCELED, Side::kUnknown);
}

long long Pacer::Grant(long long want) {
  if (CheckCancel() < 0) return -1;
  long long granted = want;
  while (read_size_ != nullptr) {
    granted = read_size_(static_cast<unsigned long long>(want));
    if (granted != 0) break;
    const timespec pause{0, 10 * kMillisecond};
    ::nanosleep(&pause, nullptr);
    if (progress_ != nullptr) progress_(0, 0);
    if (CheckCancel() < 0) return -1;
  }
  if (granted < 0) return Fail(ECANCELED, Side::kUnknown);
  granted_at_ = Now();
  return std::min(granted, want);
}

int Pacer::Moved(unsigned long long bytes) {
  AdaptPiece(bytes);
  if (progress_ != nullptr) progress_(bytes, 0);
  return CheckCancel();
}

void Pacer::AdaptPiece(unsigned long long moved) {
  // Only a whole piece tells the speed.
  if (granted_at_ == 0 || moved < static_cast<unsigned long long>(piece_)) return;
  const std::int64_t took = Now() - granted_at_;
  if (took < 20 * kMillisecond) {
    piece_ = std::min(piece_ * 2, kLargestPiece);
  } else if (took > 50 * kMillisecond) {
    piece_ = std::max(piece_ / 2, kSmallestPiece);
  }
}

}  // namespace fileop
