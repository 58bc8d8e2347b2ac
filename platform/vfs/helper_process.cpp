#include "helper_process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <thread>
#include <vector>

#include "core/process.h"
#include "core/unique_fd.h"
#include "hang_watch.h"

namespace vfs {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostWords = 4096;
constexpr int kLinesPerMinute = 20;
constexpr int kExecFailed = 127;
constexpr int kTick = 1000;  // milliseconds between two looks after a helper
constexpr std::chrono::milliseconds kPatience{2000};
constexpr std::chrono::milliseconds kPause{10};

struct Pipe {
  core::UniqueFd read;
  core::UniqueFd write;
};

bool MakePipe(Pipe* made) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  made->read.reset(ends[0]);
  made->write.reset(ends[1]);
  return true;
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// In the child. `output` becomes standard output and error.
[[noreturn]] void Execute(const Program& program, int input, int output) {
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  signal(SIGPIPE, SIG_DFL);
  umask(077);
  const auto arguments = Pointers(program.arguments);
  const auto environment = Pointers(program.environment);
  // Found through this process's own PATH, which is the program's from here on.
  setenv("PATH", kProgramPath, 1);
  execvpe(arguments[0], arguments.data(), environment.data());
  _exit(kExecFailed);
}

// Starts the program and gives it its input, which fits into a pipe.
pid_t Start(const Program& program, core::UniqueFd* output) {
  Pipe in;
  Pipe out;
  if (!MakePipe(&in) || !MakePipe(&out)) return -1;
  const pid_t pid = fork();
  if (pid == 0) Execute(program, in.read.get(), out.write.get());
  if (pid < 0) return -1;
  in.read.reset();
  // A program that ends early takes nothing; its end tells why.
  if (write(in.write.get(), program.input.data(), program.input.size()) < 0) errno = 0;
  *output = std::move(out.read);
  return pid;
}

int Left(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

// False when there is nothing in time.
bool ReadSome(int fd, int milliseconds, std::string* text) {
  pollfd poller{fd, POLLIN, 0};
  std::array<char, 1024> chunk{};
  text->clear();
  const int ready = poll(&poller, 1, milliseconds);
  if (ready == 0) return false;
  const ssize_t got = ready < 0 ? -1 : read(fd, chunk.data(), chunk.size());
  if (got < 0) return errno == EINTR;
  text->assign(chunk.data(), static_cast<std::size_t>(got));
  return got > 0;
}

// Lets a bounded number of lines a minute pass to the log.
class Relay {
 public:
  Relay(std::string name, const std::string& words)
      : name_(std::move(name)), words_(words, std::ios::trunc) {}

  void Take(const std::string& text) {
    if (written_ < kMostWords) {
      words_ << text.substr(0, kMostWords - written_) << std::flush;
      written_ += text.size();
    }
    line_ += text;
    for (std::size_t end = line_.find('\n'); end != std::string::npos; end = line_.find('\n')) {
      Log(line_.substr(0, end));
      line_.erase(0, end + 1);
    }
    if (line_.size() > kMostWords) line_.clear();
  }

 private:
  void Log(const std::string& line) {
    const std::time_t minute = std::time(nullptr) / 60;
    if (minute != minute_) lines_ = 0;
    minute_ = minute;
    if (++lines_ <= kLinesPerMinute) {
      syslog(LOG_ERR, "mount of %s: %s", name_.c_str(), line.c_str());
    }
  }

  std::string name_;
  std::ofstream words_;
  std::size_t written_ = 0;
  std::string line_;
  std::time_t minute_ = 0;
  int lines_ = 0;
};

struct Processes {
  pid_t helper = 0;
  std::uint64_t helper_start = 0;
  pid_t watcher = 0;
  std::uint64_t watcher_start = 0;
};

std::string RecordIn(const std::string& scratch) { return scratch + "/helper"; }
std::string WordsIn(const std::string& scratch) { return scratch + "/words"; }

// Whoever reads it sees all of it or nothing.
void WriteRecord(const std::string& scratch, pid_t helper) {
  const std::string unfinished = RecordIn(scratch) + ".new";
  std::ofstream(unfinished, std::ios::trunc)
      << helper << ' ' << core::ProcessStartTime(helper).value_or(0) << ' ' << getpid() << ' '
      << core::ProcessStartTime(getpid()).value_or(0) << '\n';
  (void)rename(unfinished.c_str(), RecordIn(scratch).c_str());
}

Processes ReadRecord(const std::string& scratch) {
  Processes found;
  std::ifstream record(RecordIn(scratch));
  if (!(record >> found.helper >> found.helper_start >> found.watcher >> found.watcher_start)) {
    return {};
  }
  return found;
}

// The pipe that the user writes orders to; made anew, so that nothing else stands in its
// place.
core::UniqueFd MakeOrderPipe(const MountOrder& order) {
  unlink(order.orders.c_str());
  if (mkfifo(order.orders.c_str(), 0200) != 0) return {};
  if (geteuid() == 0 && lchown(order.orders.c_str(), order.uid, order.gid) != 0) return {};
  // With a writer of its own it never ends.
  return core::UniqueFd(open(order.orders.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
}

void Obey(const std::string& orders, pid_t helper, bool forgets) {
  if (orders.find(kOrderToEnd) != std::string::npos) {
    // It must not unmount: the bare folder would be taken for the server's.
    kill(helper, SIGKILL);
  } else if (forgets) {
    kill(helper, SIGHUP);
  }
}

// Until the helper says no more: passes on what it says, obeys the user's orders, and ends
// it when its server hangs.
void Attend(pid_t helper, bool forgets, const MountOrder& order, int output, int orders,
            Relay* relay) {
  HangWatch watch(order.folder, order.uid, helper, order.patience);
  std::string text;
  while (true) {
    std::array<pollfd, 2> pollers{pollfd{output, POLLIN, 0}, pollfd{orders, POLLIN, 0}};
    if (poll(pollers.data(), pollers.size(), kTick) < 0 && errno != EINTR) return;
    if ((pollers[1].revents & POLLIN) != 0 && ReadSome(orders, 0, &text)) {
      Obey(text, helper, forgets);
    }
    if (watch.Hangs()) {
      relay->Take("the server does not answer, so the mount is given up\n");
      Obey({kOrderToEnd}, helper, forgets);
      return;  // its own helpers may live on for a while
    }
    if (pollers[0].revents == 0) continue;
    if (!ReadSome(output, 0, &text)) return;
    relay->Take(text);
  }
}

[[noreturn]] void WatchOver(const Program& program, const MountOrder& order,
                            const std::string& name) {
  signal(SIGPIPE, SIG_IGN);
  umask(077);
  core::UniqueFd output;
  Relay relay(name, WordsIn(order.scratch));
  const pid_t helper = Start(program, &output);
  if (helper > 0) {
    WriteRecord(order.scratch, helper);
    const core::UniqueFd orders = MakeOrderPipe(order);
    Attend(helper, program.forgets, order, output.get(), orders.get(), &relay);
    int status = 0;
    while (waitpid(helper, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == kExecFailed) {
      relay.Take(program.arguments[0] + " cannot be run\n");
    }
  }
  // A folder that is a mount still, though a dead one, stays.
  rmdir(order.folder.c_str());
  unlink(order.orders.c_str());
  _exit(0);
}

bool EndedInTime(pid_t pid, std::uint64_t start) {
  const auto deadline = Clock::now() + kPatience;
  while (pid > 0 && core::ProcessRuns(pid, start)) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

void End(pid_t pid, std::uint64_t start) {
  if (pid <= 1 || !core::ProcessRuns(pid, start)) return;
  kill(pid, SIGTERM);
  if (EndedInTime(pid, start) || !core::ProcessRuns(pid, start)) return;
  kill(pid, SIGKILL);
  (void)EndedInTime(pid, start);
}

}  // namespace

bool EndsWithin(pid_t pid, int milliseconds, int* status) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  while (true) {
    const pid_t ended = waitpid(pid, status, WNOHANG);
    if (ended == pid || (ended < 0 && errno != EINTR)) return ended == pid;
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

bool RunProgram(const Program& program, int seconds, std::string* output) {
  core::UniqueFd out;
  const pid_t pid = Start(program, &out);
  if (pid < 0) return false;
  const auto deadline = Clock::now() + std::chrono::seconds(seconds);
  std::string text;
  output->clear();
  while (ReadSome(out.get(), Left(deadline), &text)) output->append(text);
  int status = 0;
  if (EndsWithin(pid, Left(deadline), &status)) {
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }
  kill(pid, SIGKILL);
  waitpid(pid, &status, 0);
  return false;
}

pid_t StartHelper(const Program& program, const MountOrder& order, const std::string& name) {
  unlink(RecordIn(order.scratch).c_str());
  unlink(WordsIn(order.scratch).c_str());
  const pid_t pid = VLIBCProcFork();
  if (pid == 0) WatchOver(program, order, name);
  return pid;
}

void EndHelper(const std::string& scratch) {
  const Processes found = ReadRecord(scratch);
  End(found.helper, found.helper_start);
  if (!EndedInTime(found.watcher, found.watcher_start)) End(found.watcher, found.watcher_start);
  unlink(RecordIn(scratch).c_str());
}

std::string WordsOfHelper(const std::string& scratch) {
  std::ifstream file(WordsIn(scratch));
  std::string words(kMostWords, '\0');
  file.read(words.data(), static_cast<std::streamsize>(words.size()));
  words.resize(static_cast<std::size_t>(file.gcount()));
  return words;
}

}  // namespace vfs
