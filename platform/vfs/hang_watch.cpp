#include "hang_watch.h"

#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <utility>

#include "helper_process.h"
#include "probe.h"
#include "queue_file.h"
#include "vfs/mounts.h"

namespace vfs {
namespace {

// Fewer bytes are the helper's own attempts to be heard, and the questions of those who wait.
constexpr std::uint64_t kSignOfLife = 64U << 10U;
constexpr int kEndMilliseconds = 1000;

// Bytes that a process has read and written; 0 when that cannot be told.
std::uint64_t MovedBy(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/io");
  std::string name;
  std::uint64_t bytes = 0;
  std::uint64_t all = 0;
  while (file >> name >> bytes) {
    if (name == "rchar:" || name == "wchar:") all += bytes;
  }
  return all;
}

}  // namespace

HangWatch::HangWatch(std::string folder, uid_t uid, pid_t helper, int patience)
    : folder_(std::move(folder)), uid_(uid), helper_(helper), patience_(patience) {
  BeginAnew(Clock::now(), 0);
}

HangWatch::~HangWatch() {
  int status = 0;
  if (question_ <= 0) return;
  kill(question_, SIGKILL);
  (void)EndsWithin(question_, kEndMilliseconds, &status);
}

void HangWatch::BeginAnew(Clock::time_point now, std::uint64_t moved) {
  since_ = now;
  moved_ = moved;
}

bool HangWatch::Answer(Clock::time_point now, std::uint64_t moved) {
  int status = 0;
  if (EndsWithin(question_, 0, &status)) {
    const bool lost =
        WIFEXITED(status) && now - since_ > kQuickFailure && MayMeanServerLost(WEXITSTATUS(status));
    question_ = 0;
    BeginAnew(now, moved);
    return lost;
  }
  if (now - since_ < patience_) return false;
  // On a slow line the question waits behind all data that is on its way.
  const bool alive = moved - moved_ >= kSignOfLife;
  BeginAnew(now, moved);
  return !alive;
}

bool HangWatch::Hangs() {
  const auto now = Clock::now();
  const std::uint64_t moved = MovedBy(helper_);
  if (question_ > 0) return Answer(now, moved);
  if (moved - moved_ >= kSignOfLife) BeginAnew(now, moved);
  if (now - since_ < std::chrono::seconds(kQuietSeconds)) return false;
  BeginAnew(now, moved);
  if (HasTaskOf(uid_)) question_ = StartProbe(folder_);
  return false;
}

}  // namespace vfs
