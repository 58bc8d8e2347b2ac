#include "support/bandwidth.h"

#include <signal.h>
#include <sys/mman.h>

#include <atomic>
#include <chrono>

#include "scratch.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned long long kChunk = 8388608;

class BandwidthTest : public Scratch {
 protected:
  ~BandwidthTest() override { WfmlibBwEnd(); }

  void Limit(std::uint64_t rate) {
    config_.bandwidth_default = rate;
    Apply();
  }

  static bool Init() { return WfmlibBwInit(false, false, geteuid(), "dst", kChunk); }

  static long long Grant(unsigned long long bytes) {
    long long granted = -1;
    return WfmlibBwRun(0, bytes, 0, granted) ? granted : -1;
  }

  static unsigned long long TakeFor(Clock::duration time) {
    const auto end = Clock::now() + time;
    unsigned long long sum = 0;
    while (Clock::now() < end) sum += static_cast<unsigned long long>(Grant(0));
    return sum;
  }
};

TEST_F(BandwidthTest, NothingIsGrantedBeforeTheStartOrAfterTheEnd) {
  EXPECT_EQ(Grant(10), -1);
  ASSERT_TRUE(Init());
  EXPECT_EQ(Grant(10), 10);
  WfmlibBwEnd();
  WfmlibBwEnd();
  EXPECT_EQ(Grant(10), -1);
}

TEST_F(BandwidthTest, WithoutALimitTheRequestIsGrantedUpToTheChunk) {
  ASSERT_TRUE(Init());
  EXPECT_EQ(Grant(0), static_cast<long long>(kChunk));
  EXPECT_EQ(Grant(1), 1);
  EXPECT_EQ(Grant(kChunk + 1), static_cast<long long>(kChunk));
  EXPECT_EQ(Grant(~0ULL), static_cast<long long>(kChunk));
  EXPECT_FALSE(std::filesystem::exists(At("state/users/" + OwnName() + "/bandwidth")));
}

TEST_F(BandwidthTest, TwoProcessesOfAUserShareTheRate) {
  constexpr std::uint64_t kRate = 10'000'000;
  Limit(kRate);
  void* memory = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* sums = static_cast<std::atomic<unsigned long long>*>(memory);
  const auto start = Clock::now();
  pid_t children[2];
  for (int i = 0; i < 2; ++i) {
    children[i] = StartChild([sums, i] {
      if (!Init()) return 1;
      sums[i] = TakeFor(std::chrono::milliseconds(1500));
      return 0;
    });
  }
  for (const pid_t child : children) EXPECT_EQ(StatusOf(child), 0);
  const std::chrono::duration<double> elapsed = Clock::now() - start;
  const auto sum = static_cast<double>(sums[0] + sums[1]);
  // What passes in that time and one second's savings, and no more.
  EXPECT_LE(sum, static_cast<double>(kRate) * (elapsed.count() + 1.0) + 1000);
  EXPECT_GE(sum, static_cast<double>(kRate) * 0.75);
  EXPECT_GT(sums[0], 0U);
  EXPECT_GT(sums[1], 0U);
  munmap(memory, 4096);
}

TEST_F(BandwidthTest, AKilledProcessHoldsNothingBack) {
  Limit(1'000'000'000);
  for (int i = 0; i < 10; ++i) {
    const pid_t child = StartChild([] {
      if (!Init()) return 1;
      while (true) Grant(1);
    });
    usleep(3000);
    kill(child, SIGKILL);
    StatusOf(child);
  }
  ASSERT_TRUE(Init());
  EXPECT_GT(Grant(1000), 0);
}

TEST_F(BandwidthTest, ALeftoverFromBeforeARestartOfTheMachineDoesNotBlock) {
  Limit(1'000'000);
  ASSERT_TRUE(Init());
  WfmlibBwEnd();
  Write("state/users/" + OwnName() + "/bandwidth", std::string(4096, '\x7F'));
  ASSERT_TRUE(Init());
  const auto start = Clock::now();
  const long long sum = Grant(0) + Grant(0) + Grant(0);
  const std::chrono::duration<double> elapsed = Clock::now() - start;
  EXPECT_GT(sum, 0);
  EXPECT_LE(static_cast<double>(sum), 1'000'000 * (elapsed.count() + 1.0) + 1000);
}

TEST_F(BandwidthTest, AnEmptyBucketGrantsNothingInACallAndASignalEndsTheWait) {
  Limit(1);
  ASSERT_TRUE(Init());
  EXPECT_EQ(Grant(kChunk), 1);  // what an idle second saved
  struct sigaction action {};
  action.sa_handler = [](int) {};
  struct sigaction before {};
  sigaction(SIGALRM, &action, &before);
  ualarm(50000, 0);
  const auto start = Clock::now();
  const long long granted = Grant(kChunk);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
  EXPECT_LE(granted, 1);
  EXPECT_GE(granted, 0);
  sigaction(SIGALRM, &before, nullptr);
}

TEST_F(BandwidthTest, AStateThatCannotBeOpenedIsAFailure) {
  Limit(1000);
  ASSERT_TRUE(Init());
  const std::string file = "state/users/" + OwnName() + "/bandwidth";
  std::filesystem::remove(At(file));
  std::filesystem::create_symlink(At("elsewhere"), At(file));
  EXPECT_FALSE(Init());
  EXPECT_FALSE(std::filesystem::exists(At("elsewhere")));
  EXPECT_EQ(Grant(1), -1);
}

}  // namespace
