// Following a task to its end.
#pragma once

#include <json/value.h>

#include <functional>
#include <string>

#include "host/cli/client.h"
#include "host/cli/progress_view.h"
#include "host/cli/task_status.h"

namespace cli {

struct FollowResult {
  enum class End {
    kFinished,     // `answer` and `status` hold the last answer
    kInterrupted,  // Ctrl-C; the task was left alone
    kGone,         // the record went away without an answer that says it finished
    kRefused,      // the first question was refused: `error`
    kLost,         // the server stopped answering: `error`
  };
  End end = End::kLost;
  Json::Value answer;
  TaskStatus status;
  CallError error;
};

// One status question; the parts of the loop below that touch the world.
struct FollowHooks {
  std::function<bool(Json::Value* answer, CallError* error)> ask;
  std::function<bool()> interrupted;
  std::function<double()> clock;      // seconds, steady
  std::function<void(double)> sleep;  // seconds
};

FollowHooks HooksFor(Client* client, const std::string& task_id);

// Asks until the task has finished. The record of a finished task goes away
// with the answer that says so, hence that answer is kept in the result.
FollowResult Follow(const FollowHooks& hooks, ProgressView* view);

}  // namespace cli
