#include "launcher_link.h"

#include <json/reader.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "bounds.h"
#include "envelope.h"
#include "frames.h"
#include "launcher.h"
#include "plugin.h"

namespace host {
namespace {

// Loads the plug-in, tells the front how that went, and serves.
[[noreturn]] void RunLauncher(const std::string& plugin_file, std::size_t idle,
                              core::UniqueFd control, core::UniqueFd ready) {
  Plugin plugin;
  std::string err;
  Json::Value report(Json::objectValue);
  const bool loaded = plugin.Load(plugin_file, &err);
  if (loaded) {
    report["rows"] = plugin.Rows();
  } else {
    report["error"] = err;
  }
  const auto sent = SendFrame(ready.get(), JsonText(report), kTransferMs);
  ready.reset();
  if (!loaded || sent != FrameStatus::kOk) ::_exit(1);
  Launcher(std::move(control), plugin, idle).Run();
}

bool ReadReport(int fd, Json::Value* rows, std::string* err) {
  std::string text;
  Json::Value report;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (ReceiveFrame(fd, kMaxRequestFrame, kTransferMs, &text) != FrameStatus::kOk ||
      !reader->parse(text.data(), text.data() + text.size(), &report, nullptr)) {
    *err = "the launcher did not start";
    return false;
  }
  if (report.isMember("error")) {
    *err = report["error"].asString();
    return false;
  }
  *rows = report["rows"];
  return true;
}

Outcome TakeKind(std::string* answer) {
  if (answer->empty()) return Outcome::kDied;
  const auto kind = static_cast<AnswerKind>(answer->back());
  answer->pop_back();
  return kind == AnswerKind::kAnswer ? Outcome::kAnswered : Outcome::kUnreadable;
}

// Sends a call to a request process and waits for its answer.
Outcome Ask(int connection, const std::string& call, std::string* answer) {
  // A process that dies early is noticed below, whatever the sending says.
  static_cast<void>(SendFrame(connection, call, kTransferMs));
  switch (ReceiveFrame(connection, kMaxAnswerFrame, kAnswerMs, answer)) {
    case FrameStatus::kOk:
      return TakeKind(answer);
    case FrameStatus::kTimeout:
      return Outcome::kTimeout;
    default:
      return Outcome::kDied;
  }
}

}  // namespace

bool LauncherLink::Start(const std::string& plugin_file, std::size_t idle, std::string* err) {
  core::UniqueFd their_control;
  core::UniqueFd ready;
  core::UniqueFd their_ready;
  if (!MakeSocketPair(SOCK_SEQPACKET, &control_, &their_control) ||
      !MakeSocketPair(SOCK_STREAM, &ready, &their_ready)) {
    *err = std::string("cannot make sockets: ") + ::strerror(errno);
    return false;
  }
  const pid_t pid = ::fork();
  if (pid < 0) {
    *err = std::string("cannot start the launcher: ") + ::strerror(errno);
    return false;
  }
  if (pid == 0) {
    control_.reset();
    ready.reset();
    RunLauncher(plugin_file, idle, std::move(their_control), std::move(their_ready));
  }
  their_control.reset();
  their_ready.reset();
  // A launcher that no longer reads must not hold threads for ever.
  const timeval limit{kTransferMs / 1000, 0};
  ::setsockopt(control_.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  return ReadReport(ready.get(), &rows_, err);
}

core::UniqueFd LauncherLink::Connect(Errand errand) const {
  core::UniqueFd ours;
  core::UniqueFd theirs;
  if (MakeSocketPair(SOCK_STREAM, &ours, &theirs) &&
      SendDescriptor(control_.get(), theirs.get(), errand)) {
    return ours;
  }
  ::syslog(LOG_ERR, "cannot reach the launcher: %s", ::strerror(errno));
  return {};
}

Outcome LauncherLink::Execute(const Call& call, std::string* answer) const {
  const std::string text = EncodeCall(call);
  const bool again = OnlyReadsRecords(call);
  core::UniqueFd process = again ? kept_->Take(call.user) : core::UniqueFd();
  // One whose time had come may have ended without looking at the call.
  Outcome outcome = process ? Ask(process.get(), text, answer) : Outcome::kDied;
  if (!process || outcome == Outcome::kDied) {
    process = Connect(Errand::kRequest);
    if (!process) return Outcome::kNoProcess;
    outcome = Ask(process.get(), text, answer);
  }
  if (again && outcome == Outcome::kAnswered) kept_->Keep(call.user, std::move(process));
  return outcome;
}

LoginAnswer LauncherLink::LogIn(const std::string& name, const std::string& address,
                                const SecretText& password) const {
  const core::UniqueFd ours = Connect(Errand::kLogin);
  if (!ours) return {};
  return AskLogin(ours.get(), name, address, password);
}

bool LauncherLink::CountTasks(TaskFigures* figures) const {
  const core::UniqueFd ours = Connect(Errand::kFigures);
  return ours && AskFigures(ours.get(), figures);
}

bool LauncherLink::Serves(const std::string& api, int version, const std::string& method) const {
  return std::any_of(rows_.begin(), rows_.end(), [&](const Json::Value& row) {
    return row["version"].asInt() == version && row["method"].asString() == method &&
           row["api"].asString() == api;
  });
}

}  // namespace host
