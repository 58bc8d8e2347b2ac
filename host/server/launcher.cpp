#include "launcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "request_process.h"
#include "system_login.h"
#include "task_figures.h"
#include "vfs/mounts.h"

namespace host {
namespace {

// After a failed fork or an idle child's unexpected end, so as not to spin.
constexpr std::chrono::milliseconds kRefillPause{500};

// A fork takes the processor, and slows down the request that was just handed over: as long
// as enough children are left, it waits until nobody has asked for this long.
constexpr std::chrono::milliseconds kQuiet{10};

sigset_t WatchedSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGCHLD);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

Launcher::Launcher(core::UniqueFd control, const Plugin& plugin, std::size_t idle)
    : control_(std::move(control)),
      plugin_(plugin),
      wanted_idle_(idle),
      watch_([this](const std::string& user) { return StartLook(user); }) {}

void Launcher::Run() {
  // Orphaned workers become children of this process.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
  SetUpSignals();
  // What a launcher that was killed has left mounted.
  vfs::ReleaseMounts();
  watch_.LookAtEveryone(Clock::now());
  while (true) {
    std::array<pollfd, 2> pollers{pollfd{control_.get(), POLLIN, 0},
                                  pollfd{signals_.get(), POLLIN, 0}};
    const int ready = ::poll(pollers.data(), pollers.size(), TimeoutMs());
    if (ready > 0 && pollers[0].revents != 0) ReadControl();
    if (ready > 0 && pollers[1].revents != 0) ReadSignals();
    watch_.StartDue(Clock::now());
    // Requests come first; a child for the next one is made when none waits.
    if (ready == 0 && NeedsRefill()) Refill();
  }
}

void Launcher::SetUpSignals() {
  // A terminal's interrupt goes to the front, which then closes the control socket.
  ::signal(SIGINT, SIG_IGN);
  ::signal(SIGHUP, SIG_IGN);
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGCHLD, SIG_DFL);
  const sigset_t watched = WatchedSignals();
  ::sigprocmask(SIG_SETMASK, &watched, nullptr);
  signals_.reset(::signalfd(-1, &watched, SFD_NONBLOCK | SFD_CLOEXEC));
  if (!signals_) {
    ::syslog(LOG_ERR, "the launcher cannot watch its children: %s", ::strerror(errno));
    ::_exit(1);
  }
}

int Launcher::TimeoutMs() const {
  const auto now = Clock::now();
  int timeout = watch_.TimeoutMs(now);
  if (NeedsRefill()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(RefillTime() - now);
    const int pause = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
    timeout = timeout < 0 ? pause : std::min(timeout, pause);
  }
  return timeout;
}

void Launcher::ReadSignals() {
  signalfd_siginfo info{};
  while (::read(signals_.get(), &info, sizeof info) == sizeof info) {
    if (info.ssi_signo == SIGTERM) End();
  }
  ReapChildren();
}

void Launcher::ReapChildren() {
  while (true) {
    // The uid is gone once the child is reaped, so it is asked for first.
    siginfo_t info{};
    if (::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == 0) return;
    int status = 0;
    if (::waitpid(info.si_pid, &status, 0) != info.si_pid) return;
    Ended(info.si_pid, info.si_uid, status);
  }
}

void Launcher::Ended(pid_t pid, uid_t uid, int wait_status) {
  if (busy_.erase(pid) != 0) {
    if (WIFSIGNALED(wait_status)) {
      ::syslog(LOG_ERR, "a request process was ended by signal %d", WTERMSIG(wait_status));
    }
    return;
  }
  const auto idle = std::find_if(idle_.begin(), idle_.end(),
                                 [pid](const Idle& child) { return child.pid == pid; });
  if (idle != idle_.end()) {
    ::syslog(LOG_ERR, "an idle request process ended unexpectedly");
    idle_.erase(idle);
    refill_after_ = Clock::now() + kRefillPause;
    return;
  }
  if (watch_.LookEnded(pid, wait_status, Clock::now())) return;
  const bool clean = WIFEXITED(wait_status) && WEXITSTATUS(wait_status) == 0;
  if (!clean) {
    ::syslog(LOG_ERR, "worker %d ended by %s %d", static_cast<int>(pid),
             WIFSIGNALED(wait_status) ? "signal" : "status",
             WIFSIGNALED(wait_status) ? WTERMSIG(wait_status) : WEXITSTATUS(wait_status));
  }
  watch_.WorkerEnded(uid, clean, Clock::now());
}

void Launcher::ReadControl() {
  core::UniqueFd connection;
  Errand errand = Errand::kRequest;
  switch (ReceiveDescriptor(control_.get(), &connection, &errand)) {
    case DescriptorStatus::kOk:
      RunErrand(errand, std::move(connection));
      return;
    case DescriptorStatus::kEnd:
      End();
    case DescriptorStatus::kMalformed:
      ::syslog(LOG_ERR, "the launcher dropped a malformed message");
      return;
    case DescriptorStatus::kError:
      if (errno == EINTR || errno == EAGAIN) return;
      ::syslog(LOG_ERR, "the launcher lost the front: %s", ::strerror(errno));
      ::_exit(1);
  }
}

void Launcher::RunErrand(Errand errand, core::UniqueFd connection) {
  switch (errand) {
    case Errand::kRequest:
      HandOver(std::move(connection));
      return;
    case Errand::kLogin:
      StartErrand(std::move(connection), ServeLogin);
      return;
    case Errand::kFigures:
      StartErrand(std::move(connection), ServeFigures);
      return;
  }
  ::syslog(LOG_ERR, "the launcher dropped a message for an unknown errand");
}

void Launcher::StartErrand(core::UniqueFd connection, void (*serve)(core::UniqueFd)) {
  const pid_t pid = Fork();
  if (pid == 0) serve(std::move(connection));
  if (pid > 0) {
    busy_.insert(pid);
  } else {
    ::syslog(LOG_ERR, "cannot start a process: %s", ::strerror(errno));
  }
}

void Launcher::HandOver(core::UniqueFd connection) {
  while (!idle_.empty()) {
    Idle child = std::move(idle_.back());
    idle_.pop_back();
    // Known as busy from here on, whether or not it is still there to take it.
    busy_.insert(child.pid);
    if (SendDescriptor(child.channel.get(), connection.get())) {
      quiet_after_ = Clock::now() + kQuiet;
      return;
    }
  }
  const pid_t pid = Fork();
  if (pid == 0) ServeRequest(std::move(connection), plugin_);
  if (pid > 0) {
    busy_.insert(pid);
  } else {
    // The front sees the connection close and says so.
    ::syslog(LOG_ERR, "cannot start a request process: %s", ::strerror(errno));
  }
}

void Launcher::End() {
  vfs::ReleaseMounts();
  // The idle children see their channels close and end too.
  ::_exit(0);
}

bool Launcher::NeedsRefill() const { return idle_.size() < wanted_idle_; }

Launcher::Clock::time_point Launcher::RefillTime() const {
  const bool enough = idle_.size() * 2 >= wanted_idle_;
  return enough ? std::max(refill_after_, quiet_after_) : refill_after_;
}

void Launcher::Refill() {
  if (Clock::now() < RefillTime()) return;
  core::UniqueFd ours;
  core::UniqueFd theirs;
  pid_t pid = -1;
  if (MakeSocketPair(SOCK_SEQPACKET, &ours, &theirs)) pid = Fork();
  if (pid == 0) {
    ours.reset();
    WaitForRequest(std::move(theirs), plugin_);
  }
  if (pid < 0) {
    ::syslog(LOG_ERR, "cannot start a request process: %s", ::strerror(errno));
    refill_after_ = Clock::now() + kRefillPause;
    return;
  }
  idle_.push_back(Idle{pid, std::move(ours)});
}

pid_t Launcher::Fork() {
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  idle_.clear();
  control_.reset();
  signals_.reset();
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  return 0;
}

pid_t Launcher::StartLook(const std::string& user) {
  const pid_t pid = Fork();
  if (pid == 0) ::_exit(LookAfterUser(user));
  return pid;
}

}  // namespace host
