#include "task_figures.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <string_view>

#include "bounds.h"
#include "frames.h"
#include "supervision.h"
#include "tasks/store.h"

namespace host {
namespace {

constexpr unsigned kCountSeconds = 20;
constexpr int kCountMs = 25 * 1000;

std::string_view BytesOf(const TaskFigures& figures) {
  return {reinterpret_cast<const char*>(&figures), sizeof figures};
}

bool FromBytes(const std::string& bytes, TaskFigures* figures) {
  if (bytes.size() != sizeof *figures) return false;
  std::memcpy(figures, bytes.data(), bytes.size());
  return true;
}

void Count(const tasks::Record& record, TaskFigures* figures) {
  const Json::Value& data = record.data;
  const bool waiting = data.isObject() && data["status"] == "NOT_STARTED";
  if (!record.finished) {
    ++(waiting ? figures->queued : figures->running);
  } else {
    ++(record.progress < 0 ? figures->failed : figures->finished);
  }
  if (data.isObject() && data["processed_size"].isNumeric()) {
    figures->bytes += static_cast<std::int64_t>(data["processed_size"].asDouble());
  }
}

// In a child that owns the store.
[[noreturn]] void CountForUser(const std::string& user, int channel) {
  ::alarm(kCountSeconds);
  TaskFigures figures;
  try {
    if (!BecomeOwnerOfState(user)) ::_exit(1);
    for (const tasks::Record& record : tasks::List(user)) Count(record, &figures);
    figures.totals = tasks::ReadTotals(user);
  } catch (const std::exception& e) {
    ::syslog(LOG_ERR, "cannot count the tasks of %s: %s", user.c_str(), e.what());
    ::_exit(1);
  }
  ::_exit(SendFrame(channel, BytesOf(figures), kTransferMs) == FrameStatus::kOk ? 0 : 1);
}

void Add(const TaskFigures& figures, TaskFigures* sum) {
  sum->running += figures.running;
  sum->queued += figures.queued;
  sum->finished += figures.finished;
  sum->failed += figures.failed;
  sum->bytes += figures.bytes;
  sum->totals.started += figures.totals.started;
  sum->totals.finished += figures.totals.finished;
  sum->totals.failed += figures.totals.failed;
  sum->totals.stopped += figures.totals.stopped;
  sum->totals.bytes += figures.totals.bytes;
}

void AddUser(const std::string& user, TaskFigures* sum) {
  core::UniqueFd ours;
  core::UniqueFd theirs;
  if (!MakeSocketPair(SOCK_STREAM, &ours, &theirs)) return;
  const pid_t child = ::fork();
  if (child == 0) CountForUser(user, theirs.get());
  theirs.reset();
  if (child < 0) return;
  std::string bytes;
  TaskFigures figures;
  if (ReceiveFrame(ours.get(), sizeof figures, kCountMs, &bytes) == FrameStatus::kOk &&
      FromBytes(bytes, &figures)) {
    Add(figures, sum);
  }
  ::waitpid(child, nullptr, 0);
}

}  // namespace

void ServeFigures(core::UniqueFd connection) {
  ::alarm(kRequestSeconds);
  TaskFigures sum;
  for (const std::string& user : tasks::UsersWithStore()) AddUser(user, &sum);
  ::_exit(SendFrame(connection.get(), BytesOf(sum), kTransferMs) == FrameStatus::kOk ? 0 : 1);
}

bool AskFigures(int connection, TaskFigures* figures) {
  std::string bytes;
  return ReceiveFrame(connection, sizeof *figures, kAnswerMs, &bytes) == FrameStatus::kOk &&
         FromBytes(bytes, figures);
}

}  // namespace host
