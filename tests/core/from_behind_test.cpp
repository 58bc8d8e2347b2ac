#include "core/from_behind.h"

#include <gtest/gtest.h>
#include <atomic>
#include <chrono>
#include <new>
#include <optional>
#include <thread>

namespace {

using std::chrono::microseconds;

constexpr std::size_t kCount = 2000;

struct Pace {
  const char* name;
  microseconds behind, owner;  // every hundredth item takes this long
};
constexpr Pace kPaces[] = {{"even", microseconds(0), microseconds(0)},
                           {"owner slow", microseconds(0), microseconds(500)},
                           {"owner fast", microseconds(500), microseconds(0)}};

void Linger(std::size_t i, microseconds pause) {
  if (i % 100 == 0 && pause.count() > 0) std::this_thread::sleep_for(pause);
}

// Whoever comes first to an item, its answer is its own, and what the other thread declines is the
// owner's.
TEST(FromBehind, GivesEachItemItsOwnAnswerAtAnyPace) {
  for (const Pace& pace : kPaces) {
    core::FromBehind<std::size_t> early(kCount, [&](std::size_t i) -> std::optional<std::size_t> {
      Linger(i, pace.behind);
      if (i % 7 == 0) return std::nullopt;
      return i * 3;
    });
    for (std::size_t i = 0; i < kCount; ++i) {
      Linger(i, pace.owner);
      const auto taken = early.Take(i);
      if (taken) {
        EXPECT_EQ(*taken, i * 3) << pace.name;
        EXPECT_NE(i % 7, 0U) << pace.name;
      }
    }
  }
}

TEST(FromBehind, HasAnswersReadyForAnOwnerThatComesLate) {
  std::atomic<bool> reachedTheFirst{false};
  core::FromBehind<std::size_t> early(kCount, [&](std::size_t i) -> std::optional<std::size_t> {
    if (i == 0) reachedTheFirst = true;
    return i;
  });
  while (!reachedTheFirst) std::this_thread::sleep_for(microseconds(100));
  for (std::size_t i = 1; i < kCount; ++i) EXPECT_EQ(early.Take(i), i);
}

TEST(FromBehind, LeavesTheRestToTheOwnerWhenMemoryRunsOut) {
  core::FromBehind<int> early(kCount, [](std::size_t i) -> std::optional<int> {
    if (i < kCount / 2) throw std::bad_alloc();
    return 1;
  });
  for (std::size_t i = 0; i < kCount; ++i) {
    if (early.Take(i)) {
      EXPECT_GE(i, kCount / 2);
    }
  }
}

TEST(FromBehind, EndsWithAnOwnerThatGivesUpEarly) {
  std::atomic<std::size_t> done{0};
  {
    const core::FromBehind<int> early(kCount, [&](std::size_t) -> std::optional<int> {
      ++done;
      std::this_thread::sleep_for(microseconds(200));
      return 1;
    });
  }
  EXPECT_LT(done, kCount);
}

}  // namespace
