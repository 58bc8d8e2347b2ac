#include <gtest/gtest.h>

#include "host/cli/format.h"
#include "host/cli/progress_model.h"
#include "host/cli/progress_view.h"

namespace cli {
namespace {

TaskStatus Running(double processed, double total, double rate) {
  TaskStatus status;
  status.state = "PROCESSING";
  status.total = total;
  status.processed = processed;
  status.ratio = total > 0 ? processed / total : -1;
  status.rate = rate;
  return status;
}

ProgressModel After(const TaskStatus& status, double now) { return Observe({}, status, now); }

TEST(Progress, HasNoMeasureBeforeAnythingIsCounted) {
  EXPECT_FALSE(EstimateAt({}, 1).measured);
  EXPECT_FALSE(EstimateAt(After(Running(0, 0, 0), 1), 2).measured);
  TaskStatus fresh = Running(0, -1, -1);
  fresh.ratio = 0;  // the record as "start" writes it, without a total
  EXPECT_FALSE(EstimateAt(After(fresh, 1), 2).measured);
}

TEST(Progress, MovesSmoothlyBetweenTwoWrites) {
  const ProgressModel model = After(Running(100, 1000, 20), 50);
  double before = 0.1;
  EXPECT_DOUBLE_EQ(EstimateAt(model, 50).fraction, 0.1);
  for (int tenths = 501; tenths < 550; ++tenths) {
    const double now = tenths / 10.0;
    const double fraction = EstimateAt(model, now).fraction;
    EXPECT_GT(fraction, before);
    EXPECT_LE(fraction, 0.1 + 0.02 * (now - 50) + 1e-9);
    before = fraction;
  }
}

TEST(Progress, StaysWithinWhatTheRatePredictsForOneInterval) {
  const ProgressModel model = After(Running(100, 1000, 20), 50);
  EXPECT_NEAR(EstimateAt(model, 55).fraction, 0.2, 1e-9);
  EXPECT_NEAR(EstimateAt(model, 500).fraction, 0.2, 1e-9) << "a stalled worker";
}

TEST(Progress, NeverGoesBackWhenTheRateFalls) {
  ProgressModel model = After(Running(100, 1000, 20), 50);
  model = Observe(model, Running(120, 1000, 4), 55);
  EXPECT_NEAR(EstimateAt(model, 55).fraction, 0.2, 1e-9);
  EXPECT_NEAR(EstimateAt(model, 58).fraction, 0.2, 1e-9);
  model = Observe(model, Running(300, 1000, 40), 60);
  EXPECT_NEAR(EstimateAt(model, 60).fraction, 0.3, 1e-9);
}

TEST(Progress, IsAWholeOnlyWhenTheWorkerSaysSo) {
  const ProgressModel model = After(Running(990, 1000, 500), 50);
  EXPECT_LT(EstimateAt(model, 54).fraction, 1);
  TaskStatus beyond = Running(2000, 1000, 500);
  EXPECT_EQ(EstimateAt(After(beyond, 50), 54).fraction, 1);
}

TEST(Progress, RepeatedAnswersDoNotRestartTheInterval) {
  const TaskStatus status = Running(100, 1000, 20);
  ProgressModel model = After(status, 50);
  for (int halves = 100; halves < 108; ++halves) model = Observe(model, status, halves / 2.0);
  EXPECT_NEAR(EstimateAt(model, 53).fraction, 0.16, 1e-9);
}

TEST(Progress, CountsEntriesInSteps) {
  TaskStatus status = Running(1, 4, -1);
  status.in_bytes = false;
  const ProgressModel model = After(status, 50);
  EXPECT_EQ(EstimateAt(model, 54).fraction, 0.25);
  EXPECT_LT(EstimateAt(model, 54).remaining, 0);
}

TEST(Progress, SurvivesSenselessFigures) {
  for (const double wild : {-1e300, 1e300, 0.0, -0.0}) {
    TaskStatus status = Running(10, 1000, wild);
    status.ratio = wild;
    const double fraction = EstimateAt(After(status, 50), 53).fraction;
    EXPECT_GE(fraction, 0);
    EXPECT_LE(fraction, 1);
  }
  // A clock that steps back must not move the bar back either.
  EXPECT_NEAR(EstimateAt(After(Running(100, 1000, 20), 50), 40).fraction, 0.1, 1e-9);
}

TEST(Polling, StartsFastAndGrowsToHalfASecond) {
  std::chrono::milliseconds delay = kFirstPoll;
  std::chrono::milliseconds first_second{0};
  int polls = 0;
  for (; first_second < std::chrono::seconds(1); ++polls) {
    first_second += delay;
    delay = NextPoll(delay);
  }
  EXPECT_GT(polls, 5);
  EXPECT_LT(polls, 20);
  for (int i = 0; i < 100; ++i) delay = NextPoll(delay);
  EXPECT_EQ(delay, kLastPoll);
}

TEST(ProgressLine, FitsItsColumnsWhateverTheName) {
  TaskStatus status = Running(5e8, 2e9, 1.5e8);
  status.path = "/share/日本語\x1b[31m/a very long name that goes on and on and on.txt";
  const ProgressModel model = After(status, 50);
  for (std::size_t columns = 1; columns < 140; ++columns) {
    const std::string line = ProgressLine(status, EstimateAt(model, 51), 51, columns);
    EXPECT_LE(Columns(line), columns);
    EXPECT_EQ(line.find('\x1b'), std::string::npos);
  }
  const std::string wide = ProgressLine(status, EstimateAt(model, 50), 50, 120);
  EXPECT_NE(wide.find("25 %"), std::string::npos) << wide;
  EXPECT_NE(wide.find("500 MB of 2.0 GB"), std::string::npos) << wide;
}

}  // namespace
}  // namespace cli
