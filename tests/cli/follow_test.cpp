#include "host/cli/follow.h"

#include <gtest/gtest.h>
#include <support/errors.h>

#include <functional>
#include <vector>

#include "host/cli/words.h"

namespace cli {
namespace {

class NoView : public ProgressView {
 public:
  void Show(const ProgressModel&, double) override { ++shown; }
  void End() override { ++ended; }
  int shown = 0;
  int ended = 0;
};

// A server on a clock that only sleeping moves.
class FollowTest : public testing::Test {
 protected:
  FollowTest() {
    hooks_.ask = [this](Json::Value* answer, CallError* error) {
      ++asked_;
      return answer_at_(now_, answer, error);
    };
    hooks_.clock = [this] { return now_; };
    hooks_.sleep = [this](double seconds) { now_ += seconds; };
    hooks_.interrupted = [this] { return interrupt_at_ > 0 && now_ >= interrupt_at_; };
  }

  static bool Fail(CallError* error, CallError::Kind kind, int code) {
    *error = {};
    error->kind = kind;
    (kind == CallError::Kind::kApi ? error->code : error->http_status) = code;
    return false;
  }

  static bool Answer(Json::Value* answer, bool finished, double progress) {
    *answer = Json::Value(Json::objectValue);
    (*answer)["finished"] = finished;
    (*answer)["progress"] = progress;
    (*answer)["status"] = "PROCESSING";
    return true;
  }

  FollowResult Run() { return Follow(hooks_, &view_); }

  std::function<bool(double, Json::Value*, CallError*)> answer_at_;
  FollowHooks hooks_;
  NoView view_;
  double now_ = 100;
  double interrupt_at_ = 0;
  int asked_ = 0;
};

TEST_F(FollowTest, EndsAShortTaskPromptlyAndALongOneWithoutHammering) {
  for (const double length : {0.1, 60.0}) {
    now_ = 100;
    asked_ = 0;
    answer_at_ = [&](double now, Json::Value* answer, CallError*) {
      return Answer(answer, now >= 100 + length, 1);
    };
    EXPECT_EQ(Run().end, FollowResult::End::kFinished);
    EXPECT_LT(now_, 100 + length + 0.51);
    EXPECT_LT(asked_, 20 + length * 2);
  }
  EXPECT_EQ(view_.ended, 2);
}

TEST_F(FollowTest, KeepsTheAnswerThatSaidFinished) {
  bool told = false;
  answer_at_ = [&](double now, Json::Value* answer, CallError* error) {
    // The record goes away with the answer that reports its end.
    if (told) return Fail(error, CallError::Kind::kApi, WEBFM_NO_SUCH_TASK);
    Answer(answer, now > 101, 1);
    if (now > 101) {
      told = true;
      (*answer)["errors"][0]["code"] = WEBFM_NO_PERMISSION;
      (*answer)["errors"][0]["path"] = "/a/b";
    }
    return true;
  };
  const FollowResult result = Run();
  ASSERT_EQ(result.end, FollowResult::End::kFinished);
  ASSERT_EQ(result.status.failures.size(), 1U);
  EXPECT_EQ(result.status.failures[0].path, "/a/b");
}

TEST_F(FollowTest, TellsAnUnknownTaskFromOneThatWentAway) {
  answer_at_ = [](double, Json::Value*, CallError* error) {
    return Fail(error, CallError::Kind::kApi, WEBFM_NO_SUCH_TASK);
  };
  EXPECT_EQ(Run().end, FollowResult::End::kRefused);
  answer_at_ = [](double now, Json::Value* answer, CallError* error) {
    return now < 101 ? Answer(answer, false, 0.1)
                     : Fail(error, CallError::Kind::kApi, WEBFM_NO_SUCH_TASK);
  };
  now_ = 100;
  EXPECT_EQ(Run().end, FollowResult::End::kGone);
}

TEST_F(FollowTest, OutlastsARestartOfTheServer) {
  answer_at_ = [](double now, Json::Value* answer, CallError* error) {
    if (now > 101 && now < 111) return Fail(error, CallError::Kind::kUnreachable, 0);
    if (now > 120 && now < 125) return Fail(error, CallError::Kind::kHttp, 503);
    return Answer(answer, now > 130, 1);
  };
  EXPECT_EQ(Run().end, FollowResult::End::kFinished);
}

TEST_F(FollowTest, GivesUpWhenTheServerStaysAway) {
  answer_at_ = [](double now, Json::Value* answer, CallError* error) {
    return now < 101 ? Answer(answer, false, 0.5) : Fail(error, CallError::Kind::kUnreachable, 0);
  };
  EXPECT_EQ(Run().end, FollowResult::End::kLost);
  EXPECT_LT(now_, 200);
}

TEST_F(FollowTest, AnInterruptIsSeenBetweenTwoQuestions) {
  answer_at_ = [](double, Json::Value* answer, CallError*) { return Answer(answer, false, 0.5); };
  interrupt_at_ = 130.2;
  EXPECT_EQ(Run().end, FollowResult::End::kInterrupted);
  EXPECT_LT(now_, 130.3);
}

TEST_F(FollowTest, ARefusedLoginEndsAtOnce) {
  answer_at_ = [](double, Json::Value*, CallError* error) {
    return Fail(error, CallError::Kind::kHttp, 401);
  };
  EXPECT_EQ(Run().end, FollowResult::End::kRefused);
  EXPECT_EQ(asked_, 1);
}

TEST(ResultLine, SaysWhatHappened) {
  TaskStatus status;
  status.finished = true;
  status.ratio = 1;
  status.total = 2.5e9;
  EXPECT_EQ(ResultLine(Action::kCopy, status, 4.2), "Copied 2.5 GB in 4.2 s.");
  status.in_bytes = false;
  status.total = 3;
  EXPECT_EQ(ResultLine(Action::kMove, status, 4.2), "Moved 3 entries in 4.2 s.");
  status.skipped = "some";
  EXPECT_NE(ResultLine(Action::kCopy, status, 1).find("skipped"), std::string::npos);
  status.failures = {{460, "/a"}};
  EXPECT_EQ(ResultLine(Action::kCopy, status, 1), "Finished in 1.0 s with 1 failure.");
  status.failed = true;
  EXPECT_EQ(ResultLine(Action::kCopy, status, 1), "Failed after 1.0 s.");
}

}  // namespace
}  // namespace cli
