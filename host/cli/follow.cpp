#include "host/cli/follow.h"

#include <support/errors.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "host/cli/interrupt.h"

namespace cli {
namespace {

// The server may be restarted under a running task, which goes on meanwhile.
constexpr double kPatience = 30;
constexpr double kSlice = 0.05;

double Seconds(std::chrono::milliseconds time) {
  return std::chrono::duration<double>(time).count();
}

class Follower {
 public:
  Follower(const FollowHooks& hooks, ProgressView* view) : hooks_(hooks), view_(view) {}

  FollowResult Run() {
    answered_at_ = hooks_.clock();
    std::chrono::milliseconds delay = kFirstPoll;
    while (!Ask()) {
      if (!Wait(Seconds(delay))) {
        result_.end = FollowResult::End::kInterrupted;
        break;
      }
      delay = NextPoll(delay);
    }
    view_->End();
    return result_;
  }

 private:
  // True when there is nothing more to ask.
  bool Ask() {
    if (hooks_.ask(&result_.answer, &result_.error)) {
      answered_ = true;
      answered_at_ = hooks_.clock();
      result_.status = ReadStatus(result_.answer);
      result_.end = FollowResult::End::kFinished;
      model_ = Observe(model_, result_.status, answered_at_);
      return result_.status.finished;
    }
    const CallError& error = result_.error;
    if (error.Passing()) {
      result_.end = FollowResult::End::kLost;
      return hooks_.clock() - answered_at_ > kPatience;
    }
    const bool gone = error.kind == CallError::Kind::kApi && error.code == WEBFM_NO_SUCH_TASK;
    result_.end = gone && answered_ ? FollowResult::End::kGone : FollowResult::End::kRefused;
    return true;
  }

  // False when the user interrupted.
  bool Wait(double seconds) {
    const double until = hooks_.clock() + seconds;
    for (;;) {
      if (hooks_.interrupted()) return false;
      const double now = hooks_.clock();
      if (model_.any) view_->Show(model_, now);
      if (now >= until) return true;
      hooks_.sleep(std::min(kSlice, until - now));
    }
  }

  const FollowHooks& hooks_;
  ProgressView* view_;
  ProgressModel model_;
  FollowResult result_;
  bool answered_ = false;
  double answered_at_ = 0;
};

}  // namespace

FollowHooks HooksFor(Client* client, const std::string& task_id) {
  FollowHooks hooks;
  hooks.ask = [client, task_id](Json::Value* answer, CallError* error) {
    Json::Value params(Json::objectValue);
    params["taskid"] = task_id;
    return client->Call("status", params, answer, error);
  };
  hooks.interrupted = Interrupted;
  hooks.clock = [] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  };
  hooks.sleep = [](double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  };
  return hooks;
}

FollowResult Follow(const FollowHooks& hooks, ProgressView* view) {
  return Follower(hooks, view).Run();
}

}  // namespace cli
