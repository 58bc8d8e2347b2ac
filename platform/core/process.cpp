#include "core/process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/utsname.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>

#include "core/helper_thread.h"
#include "core/unique_fd.h"

namespace core {
namespace {

struct LogSettings {
  const char* ident = nullptr;
  bool to_stderr = false;
};

LogSettings log_settings;

void ReopenLog() {
  const int options = LOG_PID | (log_settings.to_stderr ? LOG_PERROR : 0);
  openlog(log_settings.ident, options, LOG_DAEMON);
}

void ResetSignals() {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  for (const int number : {SIGTERM, SIGPIPE, SIGCHLD, SIGINT, SIGHUP}) {
    sigaction(number, &action, nullptr);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Leaves only the standard streams open. `null_fd` is open on /dev/null.
void DetachDescriptors(int null_fd) {
  dup2(null_fd, STDIN_FILENO);
  dup2(null_fd, STDOUT_FILENO);
  if (!log_settings.to_stderr) dup2(null_fd, STDERR_FILENO);
  // The log's own descriptor is closed through closelog: a stale number that
  // a later open reuses would send log lines into a user's file.
  closelog();
  if (close_range(STDERR_FILENO + 1, ~0U, 0) != 0) {
    const long limit = sysconf(_SC_OPEN_MAX);
    for (int fd = STDERR_FILENO + 1; fd < limit; ++fd) close(fd);
  }
  ReopenLog();
}

// Reads a small file of /proc whole; empty on failure.
std::string ReadProcFile(const std::string& path) {
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return {};
  std::string text;
  std::array<char, 1024> chunk;
  while (true) {
    const ssize_t got = read(fd.get(), chunk.data(), chunk.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {};
    if (got == 0) return text;
    text.append(chunk.data(), static_cast<std::size_t>(got));
  }
}

// The `index`-th word, from 0; words are divided by single blanks.
std::string_view Word(std::string_view text, int index) {
  for (; index > 0; --index) {
    const auto blank = text.find(' ');
    if (blank == std::string_view::npos) return {};
    text.remove_prefix(blank + 1);
  }
  return text.substr(0, text.find(' '));
}

}  // namespace

std::optional<std::uint64_t> ProcessStartTime(pid_t pid) {
  if (pid <= 0) return std::nullopt;
  const std::string stat = ReadProcFile("/proc/" + std::to_string(pid) + "/stat");
  // The command name may hold blanks and parentheses; nothing after it does.
  const auto name_end = stat.rfind(')');
  if (name_end == std::string::npos || name_end + 2 > stat.size()) return std::nullopt;
  const std::string_view rest = std::string_view(stat).substr(name_end + 2);
  constexpr int kState = 0;  // fields 3 and 22 of the line
  constexpr int kStartTime = 19;
  const std::string_view state = Word(rest, kState);
  if (state == "Z" || state == "X" || state == "x") return std::nullopt;
  const std::string_view digits = Word(rest, kStartTime);
  std::uint64_t ticks = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), ticks);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return ticks;
}

bool ProcessRuns(pid_t pid, std::uint64_t start) {
  const auto running = ProcessStartTime(pid);
  return running && *running == start;
}

std::uint32_t MachineId() {
  static const std::uint32_t id = [] {
    std::string text;
    std::ifstream("/etc/machine-id") >> text;
    // Machines made from one image may share that file, and some have none.
    utsname names{};
    if (uname(&names) == 0) text += std::string("@") + names.nodename;
    char link[64] = {};
    if (readlink("/proc/self/ns/pid", link, sizeof link - 1) > 0) text += link;
    return static_cast<std::uint32_t>(std::hash<std::string>{}(text));
  }();
  return id;
}

void OpenLog(const char* ident, bool to_stderr) {
  log_settings = {ident, to_stderr};
  ReopenLog();
}

bool LogToStderr() { return log_settings.to_stderr; }

}  // namespace core

pid_t VLIBCProcFork() {
  // Opened before the fork so that a failure is the caller's to report.
  core::UniqueFd null_fd(open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!null_fd) return -1;
  // A number among the standard streams would be closed or doubled below.
  if (null_fd.get() <= STDERR_FILENO) {
    null_fd.reset(fcntl(null_fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!null_fd) return -1;
  }

  // No handler of the parent may run in the child.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &before);
  const pid_t pid = fork();
  if (pid != 0) {
    const int saved = errno;
    if (pid > 0) core::MoveToAnotherProcessor(pid);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    errno = saved;
    return pid;
  }
  setsid();
  if (chdir("/") != 0) _exit(1);
  core::DetachDescriptors(null_fd.release());
  core::ResetSignals();
  return 0;
}
