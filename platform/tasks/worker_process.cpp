#include "worker_process.h"

#include <pwd.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "core/process.h"
#include "core/unique_fd.h"
#include "database.h"
#include "tasks/task_helpers.h"

// The C library's header lacks C linkage.
extern "C" {
#include <sys/syscall.h>
}

namespace tasks::internal {
namespace {

// Calls without a usable wrapper: the C library's header lacks C linkage.
int OpenProcess(pid_t pid) { return static_cast<int>(syscall(SYS_pidfd_open, pid, 0)); }

long SendSignal(int process, int number) {
  return syscall(SYS_pidfd_send_signal, process, number, nullptr, 0);
}

std::string NameOfEffectiveUser() {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0) return {};
  return found == nullptr ? std::string() : std::string(found->pw_name);
}

// Start times stored with the pid, empty ones included.
bool StoredStarts(const std::string& user, pid_t pid,
                  std::vector<std::optional<std::int64_t>>* starts) {
  Database database;
  if (database.Open(user) != Result::kDone) return false;
  Statement query(database, "SELECT pid_start FROM tasks WHERE pid = ?");
  query.Bind(static_cast<std::int64_t>(pid));
  while (query.Next()) starts->push_back(query.OptionalInteger(0));
  return query.result() == Result::kDone && !starts->empty();
}

bool AnyRuns(pid_t pid, const std::vector<std::optional<std::int64_t>>& starts) {
  for (const auto& start : starts) {
    if (WorkerRuns(pid, start)) return true;
  }
  return false;
}

}  // namespace

bool WorkerRuns(std::int64_t pid, std::optional<std::int64_t> start) {
  return start && core::ProcessRuns(static_cast<pid_t>(pid), static_cast<std::uint64_t>(*start));
}

}  // namespace tasks::internal

bool DoKill(int pid) {
  if (pid <= 1) return false;
  std::vector<std::optional<std::int64_t>> starts;
  if (!tasks::internal::StoredStarts(tasks::internal::NameOfEffectiveUser(), pid, &starts)) {
    return false;
  }
  // The descriptor pins the process before its start time is compared, so the
  // signal cannot reach one that takes over the pid in between.
  const core::UniqueFd process(tasks::internal::OpenProcess(pid));
  if (!process && errno == ESRCH) return true;
  if (!tasks::internal::AnyRuns(pid, starts)) return true;
  const long sent =
      process ? tasks::internal::SendSignal(process.get(), SIGTERM) : kill(pid, SIGTERM);
  return sent == 0 || errno == ESRCH;
}
