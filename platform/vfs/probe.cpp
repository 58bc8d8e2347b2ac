#include "probe.h"

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <memory>

#include "helper_process.h"

namespace vfs {
namespace {

// A helper may hold several connections that the server has closed since.
constexpr int kAttempts = 5;

struct CloseDir {
  void operator()(DIR* dir) const { closedir(dir); }
};

}  // namespace

int LookInto(const std::string& folder) {
  int err = EIO;
  for (int attempt = 0; attempt < kAttempts && (err == EIO || err == ECONNRESET); ++attempt) {
    errno = 0;
    const std::unique_ptr<DIR, CloseDir> dir(opendir(folder.c_str()));
    if (dir != nullptr) (void)readdir(dir.get());
    err = errno;
  }
  return err;
}

pid_t StartProbe(const std::string& folder) {
  const pid_t pid = fork();
  if (pid == 0) _exit(LookInto(folder) & 0xFF);
  return pid;
}

int Probe(const std::string& folder, int seconds) {
  const pid_t pid = StartProbe(folder);
  if (pid < 0) return errno;
  int status = 0;
  if (EndsWithin(pid, seconds * 1000, &status)) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : EIO;
  }
  kill(pid, SIGKILL);
  (void)EndsWithin(pid, 1000, &status);
  return ETIMEDOUT;
}

}  // namespace vfs
