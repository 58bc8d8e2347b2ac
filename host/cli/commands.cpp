#include "host/cli/commands.h"

#include <core/utf8.h>
#include <support/errors.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "host/cli/folder_pages.h"
#include "host/cli/follow.h"
#include "host/cli/format.h"
#include "host/cli/interrupt.h"
#include "host/cli/listing.h"
#include "host/cli/progress_view.h"
#include "host/cli/refusal.h"
#include "host/cli/task_status.h"
#include "host/cli/words.h"

namespace cli {
namespace {

Json::Value TaskParams(const std::string& id) {
  Json::Value params(Json::objectValue);
  params["taskid"] = id;
  return params;
}

int ExitFor(const TaskStatus& status) {
  return status.failed || !status.failures.empty() ? kExitFailures : kExitDone;
}

// The sentence, then each failure; as JSON the server's own answer.
int ReportEnd(const Options& options, Action action, const std::string& id,
              const FollowResult& result, double seconds) {
  if (options.json) {
    Json::Value answer = result.answer;
    answer["taskid"] = id;
    std::cout << ToJsonLine(answer) << std::endl;
    return ExitFor(result.status);
  }
  for (const Failure& failure : result.status.failures) {
    std::cerr << "fennox: " << FailureLine(failure) << "\n";
  }
  std::cout << ResultLine(action, result.status, seconds) << std::endl;
  return ExitFor(result.status);
}

int StopAfterInterrupt(Client* client, const std::string& id, bool json) {
  Json::Value data;
  CallError error;
  if (!client->Call("stop", TaskParams(id), &data, &error)) {
    Refuse(error, "task " + Printable(id) + " could not be stopped: ");
  } else if (json) {
    Json::Value answer = TaskParams(id);
    answer["stopped"] = true;
    std::cout << ToJsonLine(answer) << std::endl;
  } else {
    std::cerr << "fennox: stopped; what was complete stays\n";
  }
  return kExitStopped;
}

// What is left to say when the task's end was not seen.
int ReportUnseen(const FollowResult& result, const std::string& id) {
  switch (result.end) {
    case FollowResult::End::kGone:
      Refuse(result.error, "the task was stopped, or another client has taken its result: ");
      return kExitStopped;
    case FollowResult::End::kLost:
      return Refuse(result.error, "", "the task may go on: fennox status --watch " + Printable(id));
    default:
      return Refuse(result.error, "");
  }
}

FollowResult FollowShown(Client* client, const std::string& id, bool json) {
  // With --json standard output is for the answer alone.
  const auto view = MakeProgressView(json ? stderr : stdout);
  return Follow(HooksFor(client, id), view.get());
}

int FollowStarted(Client* client, const Options& options, const std::string& id) {
  const auto clock = HooksFor(client, id).clock;
  const double begin = clock();
  const FollowResult result = FollowShown(client, id, options.json);
  if (result.end == FollowResult::End::kInterrupted) {
    return StopAfterInterrupt(client, id, options.json);
  }
  if (result.end != FollowResult::End::kFinished) return ReportUnseen(result, id);
  const Action action = options.command == Command::kMove ? Action::kMove : Action::kCopy;
  return ReportEnd(options, action, id, result, clock() - begin);
}

void PrintDetached(const Options& options, const std::string& id) {
  std::cout << (options.json ? ToJsonLine(TaskParams(id)) : Printable(id)) << std::endl;
}

// A last slash means nothing on local paths; on remote ones it is part of a mount's name.
std::string CleanPath(std::string path) {
  while (path.size() > 1 && path.front() == '/' && path.back() == '/') path.pop_back();
  return path;
}

bool CheckPath(const std::string& path, std::string* error) {
  if (path.empty()) {
    *error = "a path is empty";
    return false;
  }
  if (!core::IsUtf8(path)) {
    *error = Printable(path) + ": " + Reason(WEBFM_ILLEGAL_NAME);
    return false;
  }
  return true;
}

// Finished: the whole report. Running: one line.
int ReportStatus(const Options& options, const Json::Value& answer) {
  FollowResult result;
  result.answer = answer;
  result.status = ReadStatus(answer);
  if (result.status.finished || options.json) {
    return ReportEnd(options, Action::kTransfer, options.target, result, 0);
  }
  for (const Failure& failure : result.status.failures) {
    std::cerr << "fennox: " << FailureLine(failure) << "\n";
  }
  std::cout << StatusLine(result.status) << std::endl;
  return kExitDone;
}

// Runs one of the server's calls and prints its data as JSON or as a table.
int PrintCall(Client* client, const std::string& call,
              const std::multimap<std::string, std::string>& query, bool json,
              std::string (*table)(const Json::Value&)) {
  Json::Value data;
  CallError error;
  if (!client->Get(call, query, &data, &error)) return Refuse(error, "");
  if (json) {
    std::cout << ToJsonText(data) << std::endl;
  } else {
    std::cout << table(data) << std::flush;
  }
  return kExitDone;
}

}  // namespace

bool StartParams(const Options& options, Json::Value* params, std::string* error) {
  *params = Json::Value(Json::objectValue);
  Json::Value& paths = (*params)["path"] = Json::Value(Json::arrayValue);
  for (const std::string& source : options.sources) {
    if (!CheckPath(source, error)) return false;
    paths.append(CleanPath(source));
  }
  if (!CheckPath(options.target, error)) return false;
  // A list, like the sources: a plain text would be split at its commas.
  (*params)["dest_folder_path"].append(CleanPath(options.target));
  (*params)["remove_src"] = options.command == Command::kMove;
  (*params)["accurate_progress"] = options.accurate_progress;
  if (options.conflict == Conflict::kOverwrite) (*params)["overwrite"] = true;
  // Renaming alone would still refuse a taken name before the task starts.
  if (options.conflict == Conflict::kSkip || options.conflict == Conflict::kRename) {
    (*params)["overwrite"] = false;
  }
  if (options.conflict == Conflict::kRename) (*params)["rename"] = true;
  return true;
}

int RunTransfer(Client* client, const Options& options) {
  Json::Value params;
  std::string text;
  if (!StartParams(options, &params, &text)) return Refuse(text);
  if (!options.detach) CatchInterrupt();
  Json::Value data;
  CallError error;
  if (!client->Call("start", params, &data, &error)) return Refuse(error, "not started: ");
  const std::string id = TextOf(data, "taskid");
  if (id.empty()) return Refuse("the server started a task but told no id");
  if (options.detach) {
    PrintDetached(options, id);
    return kExitDone;
  }
  return FollowStarted(client, options, id);
}

int RunStatus(Client* client, const Options& options) {
  if (!options.watch) {
    Json::Value answer;
    CallError error;
    if (!client->Call("status", TaskParams(options.target), &answer, &error)) {
      return Refuse(error, "");
    }
    return ReportStatus(options, answer);
  }
  CatchInterrupt();
  const FollowResult result = FollowShown(client, options.target, options.json);
  // Watching only: the task goes on without us.
  if (result.end == FollowResult::End::kInterrupted) return kExitStopped;
  if (result.end != FollowResult::End::kFinished) return ReportUnseen(result, options.target);
  return ReportEnd(options, Action::kTransfer, options.target, result, 0);
}

int RunStop(Client* client, const Options& options) {
  Json::Value data;
  CallError error;
  // To the server, what does not run is stopped already; it would also drop the record of
  // a task that has ended, and with it what failed.
  if (!client->Get("task", {{"id", options.target}}, &data, &error)) {
    return Refuse(error, "not stopped: ");
  }
  if (data.isObject() && data["finished"] == Json::Value(true)) {
    return Refuse("not stopped: the task has ended already: fennox status " +
                  Printable(options.target));
  }
  if (!client->Call("stop", TaskParams(options.target), &data, &error)) {
    return Refuse(error, "not stopped: ");
  }
  if (options.json) std::cout << ToJsonLine(TaskParams(options.target)) << std::endl;
  return kExitDone;
}

int RunList(Client* client, const Options& options) {
  return PrintCall(client, "tasks", {}, options.json, TaskTable);
}

int RunLs(Client* client, const Options& options) {
  std::string text;
  if (!CheckPath(options.target, &text)) return Refuse(text);
  const std::string path = CleanPath(options.target);
  if (path == "/") return PrintCall(client, "shares", {}, options.json, ShareTable);
  Json::Value whole;
  CallError error;
  const bool complete = EachPage(
      client, path,
      [&](const Json::Value& page) {
        if (!options.json) {
          std::cout << FolderTable(page) << std::flush;
        } else if (whole.isNull()) {
          whole = page;
          whole.removeMember("next");
        } else {
          for (const Json::Value& entry : page["entries"]) whole["entries"].append(entry);
        }
      },
      &error);
  if (!complete) return Refuse(error, "");
  if (options.json) std::cout << ToJsonText(whole) << std::endl;
  return kExitDone;
}

int RunTaskShow(Client* client, const Options& options) {
  return PrintCall(client, "task", {{"id", options.target}}, true, nullptr);
}

int RunRemoteList(Client* client, const Options& options) {
  return PrintCall(client, "remotes", {}, options.json, RemoteTable);
}

int RunRemoteCheck(Client* client, const Options& options) {
  Json::Value state;
  CallError error;
  if (!client->Get("remote", {{"name", options.target}}, &state, &error)) return Refuse(error, "");
  const bool ready = state.isObject() && state["ready"] == Json::Value(true);
  std::cout << (options.json ? ToJsonLine(state) : RemoteLine(state)) << std::endl;
  return ready ? kExitDone : kExitFailures;
}

int RunLog(Client* client, const Options& options) {
  return PrintCall(client, "log", {{"limit", std::to_string(options.limit)}}, options.json,
                   LogTable);
}

}  // namespace cli
