#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

#include "auto_mount.h"
#include "core/unique_fd.h"
#include "mount_helper.h"
#include "probe.h"
#include "vfs/mounts.h"
#include "vfs/vfs.h"

namespace vfs {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kEndPatience{2};
constexpr std::chrono::milliseconds kPause{5};

int PatienceWith(const std::string& name) {
  for (const core::RemoteConfig& remote : core::CurrentConfig().remotes) {
    if (remote.name == name) return AnswerSeconds(remote);
  }
  return kMostAnswerSeconds;
}

// Without its helper a mount answers every call at once, with ENOTCONN: those that wait
// for it now, and whatever is still to be tidied up.
void EndHelperOf(const std::string& name) {
  const std::string pipe = OrderPipe(TAVOVFS::GetActorUID(), name);
  const core::UniqueFd orders(open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (!orders || write(orders.get(), &kOrderToEnd, 1) != 1) return;
  const auto deadline = Clock::now() + kEndPatience;
  while (access(pipe.c_str(), F_OK) == 0 && Clock::now() < deadline) {
    std::this_thread::sleep_for(kPause);
  }
}

bool Ask(const MountInfo& mount) {
  const auto began = Clock::now();
  if (!MayMeanServerLost(Probe(mount.mount_path, PatienceWith(mount.name)))) return true;
  // Only of a mount that is the server's own is there such a pipe.
  if (Clock::now() - began > kQuickFailure) EndHelperOf(mount.name);
  return false;
}

}  // namespace

bool MayMeanServerLost(int err) {
  constexpr std::array kSigns{EIO,          ENOTCONN,     ECONNRESET, ECONNABORTED,
                              ECONNREFUSED, EHOSTUNREACH, EHOSTDOWN,  ETIMEDOUT};
  return std::find(kSigns.begin(), kSigns.end(), err) != kSigns.end();
}

bool MountAnswers(const std::string& path) {
  static std::mutex mutex;
  static std::set<std::string> lost;  // by mount path
  const int saved = errno;
  MountInfo mount;
  bool answers = true;
  if (FindByFullPath(path, &mount)) {
    const std::lock_guard<std::mutex> lock(mutex);
    answers = !lost.contains(mount.mount_path) && Ask(mount);
    if (!answers) lost.insert(mount.mount_path);
  }
  errno = saved;
  return answers;
}

}  // namespace vfs
