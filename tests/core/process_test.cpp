#include "core/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "core/unique_fd.h"
#include "scratch.h"

namespace {

std::string LinkTarget(const std::string& path) {
  std::error_code error;
  return std::filesystem::read_symlink(path, error).string();
}

// Runs in the detached child: writes down what it finds itself to be.
void WriteReport(const std::string& file) {
  std::string fds;
  for (int fd = 0; fd < 1024; ++fd) {
    if (fcntl(fd, F_GETFD) != -1) fds += std::to_string(fd) + " ";
  }
  std::ofstream out(file);
  out << "fds " << fds << "\n";
  for (const char* fd : {"0", "1", "2"}) {
    out << fd << " " << LinkTarget(std::string("/proc/self/fd/") + fd) << "\n";
  }
  out << "session " << (getsid(0) == getpid()) << "\n";
  out << "folder " << std::filesystem::current_path().string() << "\n";
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  out << "mask " << sigisemptyset(&mask) << "\n";
  for (const int number : {SIGTERM, SIGPIPE, SIGCHLD, SIGINT, SIGHUP}) {
    struct sigaction action;
    sigaction(number, nullptr, &action);
    out << "signal " << number << " " << (action.sa_handler == SIG_DFL) << "\n";
  }
}

// Every case forks from a child of the test, whose state it may spoil.
using Detached = Scratch;

TEST_F(Detached, KeepsNothingOfItsParent) {
  const int result = InChild([&] {
    const core::UniqueFd low(open(path_.c_str(), O_RDONLY));
    const core::UniqueFd high(fcntl(low.get(), F_DUPFD, 700));
    for (const int number : {SIGTERM, SIGPIPE, SIGCHLD, SIGINT, SIGHUP}) signal(number, SIG_IGN);
    signal(SIGCHLD, SIG_DFL);
    sigset_t mask;
    sigfillset(&mask);
    sigprocmask(SIG_SETMASK, &mask, nullptr);

    const pid_t pid = VLIBCProcFork();
    if (pid == 0) {
      WriteReport(At("report"));
      _exit(0);
    }
    sigset_t after;
    sigprocmask(SIG_SETMASK, nullptr, &after);
    const bool kept = sigismember(&after, SIGUSR1) == 1 && fcntl(high.get(), F_GETFD) != -1;
    return pid > 0 && kept ? StatusOf(pid) : 1;
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Content("report"),
            "fds 0 1 2 \n0 /dev/null\n1 /dev/null\n2 /dev/null\nsession 1\nfolder /\nmask 1\n"
            "signal 15 1\nsignal 13 1\nsignal 17 1\nsignal 2 1\nsignal 1 1\n");
}

TEST_F(Detached, LogsToTheStandardErrorOfItsParentWhenAskedTo) {
  Write("stderr", "");
  const int result = InChild([&] {
    const core::UniqueFd err(open(At("stderr").c_str(), O_WRONLY | O_APPEND));
    dup2(err.get(), STDERR_FILENO);
    core::OpenLog("some-daemon", true);
    syslog(LOG_ERR, "before");
    const pid_t pid = VLIBCProcFork();
    if (pid == 0) {
      // The next descriptor has the number that the log had.
      const core::UniqueFd file(open(At("user-file").c_str(), O_WRONLY | O_CREAT, 0600));
      syslog(LOG_ERR, "after");
      _exit(core::LogToStderr() ? 0 : 1);
    }
    return StatusOf(pid);
  });
  EXPECT_EQ(result, 0);
  const std::string log = Content("stderr");
  EXPECT_NE(log.find("some-daemon["), std::string::npos) << log;
  EXPECT_NE(log.find("]: before"), std::string::npos) << log;
  const auto after = log.find("]: after");
  ASSERT_NE(after, std::string::npos) << log;
  EXPECT_NE(log.rfind("some-daemon[", after), log.find("some-daemon[")) << log;
  EXPECT_EQ(Content("user-file"), "");
}

TEST_F(Detached, IsForkedAlsoWhenTheParentHasNoStandardStreams) {
  const int result = InChild([&] {
    for (const int fd : {0, 1, 2}) close(fd);
    const pid_t pid = VLIBCProcFork();
    if (pid == 0) {
      WriteReport(At("report"));
      _exit(0);
    }
    return pid > 0 ? StatusOf(pid) : 1;
  });
  EXPECT_EQ(result, 0);
  EXPECT_NE(Content("report").find("fds 0 1 2 \n0 /dev/null\n1 /dev/null\n2 /dev/null\n"),
            std::string::npos);
}

TEST(ProcessStartTime, NamesALivingProcess) {
  const auto own = core::ProcessStartTime(getpid());
  ASSERT_TRUE(own.has_value());
  EXPECT_EQ(core::ProcessStartTime(getpid()), own);
  const auto first = core::ProcessStartTime(1);
  ASSERT_TRUE(first.has_value());
  EXPECT_LE(*first, *own);
  for (const pid_t none : {0, -1, 0x7FFFFFFF}) EXPECT_FALSE(core::ProcessStartTime(none));
}

TEST(ProcessRuns, OnlyTheProcessOfThatPidAndStart) {
  const auto own = core::ProcessStartTime(getpid());
  ASSERT_TRUE(own.has_value());
  EXPECT_TRUE(core::ProcessRuns(getpid(), *own));
  EXPECT_FALSE(core::ProcessRuns(getpid(), *own + 1));
  EXPECT_FALSE(core::ProcessRuns(0x7FFFFFFF, 0));
}

TEST(ProcessStartTime, IsReadPastAnyCommandName) {
  const auto own = core::ProcessStartTime(getpid());
  char before[16];
  prctl(PR_GET_NAME, before);
  for (const char* name : {"a b", "x) Z 1 (", ")", "(()", ") S 1 1 1 1 1"}) {
    prctl(PR_SET_NAME, name);
    EXPECT_EQ(core::ProcessStartTime(getpid()), own) << name;
  }
  prctl(PR_SET_NAME, before);
}

TEST(ProcessStartTime, AZombieHasNone) {
  const pid_t pid = fork();
  if (pid == 0) _exit(0);
  siginfo_t info;
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
  EXPECT_FALSE(core::ProcessStartTime(pid));
  StatusOf(pid);
}

}  // namespace
