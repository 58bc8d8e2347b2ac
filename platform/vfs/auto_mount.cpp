#include "auto_mount.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

#include "core/mount_table.h"
#include "core/unique_fd.h"
#include "helper_process.h"
#include "mount_helper.h"
#include "probe.h"
#include "queue_file.h"
#include "vfs/mounts.h"
#include "vfs/vfs.h"

namespace vfs {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kUnmountSeconds = 5;
constexpr std::chrono::milliseconds kPause{5};
constexpr std::chrono::seconds kForgetPatience{1};
constexpr std::chrono::milliseconds kForgetPause{10};
constexpr std::chrono::milliseconds kLookPause{2};
constexpr std::chrono::milliseconds kListingPatience{3 * kListingMilliseconds};

std::string MountsFolder() {
  const std::string& state = core::CurrentConfig().server.state;
  const std::unique_ptr<char, decltype(&std::free)> real(
      state.empty() ? nullptr : realpath(state.c_str(), nullptr), &std::free);
  return real == nullptr ? std::string() : std::string(real.get()) + "/mounts";
}

// A folder of the server's own user; what else stands there is refused.
bool OwnFolder(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST) return false;
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return false;
  if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid()) {
    errno = EPERM;
    return false;
  }
  return chmod(path.c_str(), mode) == 0;
}

// One mount, and what belongs to it.
struct Place {
  std::string folder;
  std::string scratch;
  std::string orders;
};

bool MakePlace(const std::string& name, uid_t uid, Place* place) {
  const std::string top = MountsFolder();
  const std::string user = std::to_string(uid);
  place->folder = AutoMountFolder(uid, name);
  place->scratch = top + "/private/" + user + "/" + name;
  place->orders = OrderPipe(uid, name);
  // Users pass through to the mounts and see no others' names.
  return !top.empty() && OwnFolder(top, 0711) && OwnFolder(top + "/" + user, 0711) &&
         OwnFolder(top + "/orders", 0711) && OwnFolder(top + "/orders/" + user, 0711) &&
         OwnFolder(top + "/private", 0700) && OwnFolder(top + "/private/" + user, 0700) &&
         OwnFolder(place->scratch, 0700);
}

// Mounting is one process's work at a time.
core::UniqueFd Lock(const Place& place, int seconds) {
  core::UniqueFd file(
      open((place.scratch + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  const auto deadline = Clock::now() + std::chrono::seconds(seconds);
  while (file && flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK || Clock::now() >= deadline) return {};
    std::this_thread::sleep_for(kPause);
  }
  return file;
}

// A helper mounts first and gives up when it cannot connect: what was looked into then is
// the bare folder.
int ProbeMount(const std::string& folder, int seconds) {
  const int err = Probe(folder, seconds);
  return err == 0 && !IsMounted(folder) ? ENOTCONN : err;
}

Trouble TroubleOfProbe(int err) {
  const char* words = strerror(err);
  switch (err) {
    case 0:
      return {};
    case ETIMEDOUT:
      return {TroubleKind::kTimedOut, "the server does not answer in time"};
    case EACCES:
    case EPERM:
      return {TroubleKind::kLoginFailed, words};
    case ENOENT:
    case ENOTDIR:
      return {TroubleKind::kNoFolder, words};
    default:
      return {MayMeanServerLost(err) ? TroubleKind::kUnreachable : TroubleKind::kOther, words};
  }
}

// What the helper said, by its line that tells most.
Trouble TroubleOfHelper(const std::string& words, const Trouble& otherwise) {
  constexpr std::size_t kDateSize = 20;  // "2026/11/24 23:01:47 "
  std::istringstream lines(words);
  std::string line;
  Trouble best;
  while (std::getline(lines, line)) {
    if (line.size() > kDateSize && line[4] == '/' && line[kDateSize - 1] == ' ') {
      line.erase(0, kDateSize);
    }
    if (line.empty()) continue;
    Trouble trouble = TroubleFromWords(line);
    if (trouble.kind != TroubleKind::kOther) return trouble;
    best = std::move(trouble);
  }
  return otherwise || !best ? otherwise : best;
}

void Detach(const std::string& folder) {
  if (geteuid() == 0) {
    umount2(folder.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
    return;
  }
  const Program program{
      {"fusermount3", "-u", "-z", "--", folder}, {std::string("PATH=") + kProgramPath}, {}};
  std::string output;
  (void)RunProgram(program, kUnmountSeconds, &output);
}

void Unmount(const Place& place) {
  if (IsMounted(place.folder)) Detach(place.folder);
  EndHelper(place.scratch);
  rmdir(place.folder.c_str());
}

bool WaitForMount(const std::string& folder, pid_t watcher, int seconds) {
  const auto deadline = Clock::now() + std::chrono::seconds(seconds);
  int status = 0;
  while (!IsMounted(folder)) {
    if (Clock::now() >= deadline || EndsWithin(watcher, 0, &status)) return false;
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

Trouble Mount(const core::RemoteConfig& remote, const MountOrder& order, const Place& place) {
  Program program;
  if (Trouble trouble = PrepareHelper(remote, order, &program)) return trouble;
  if (!OwnFolder(order.folder, 0700)) {
    return {TroubleKind::kNotAvailable, order.folder + ": " + strerror(errno)};
  }
  const pid_t watcher = StartHelper(program, order, remote.name);
  if (watcher < 0) return {TroubleKind::kNotAvailable, strerror(errno)};
  const int patience = remote.connect_timeout + kGraceSeconds;
  const auto began = Clock::now();
  Trouble trouble;
  if (!WaitForMount(order.folder, watcher, patience)) {
    const bool late = Clock::now() - began >= std::chrono::seconds(patience);
    trouble = late ? Trouble{TroubleKind::kTimedOut, "the server does not answer in time"}
                   : Trouble{TroubleKind::kOther, program.arguments[0] + " ended at once"};
  } else {
    trouble = TroubleOfProbe(ProbeMount(order.folder, patience));
  }
  if (!trouble) return {};
  Unmount(place);
  return TroubleOfHelper(WordsOfHelper(place.scratch), trouble);
}

Trouble Ensure(const core::RemoteConfig& remote, uid_t uid, gid_t gid) {
  const int patience = remote.connect_timeout + kGraceSeconds;
  Place place;
  if (!MakePlace(remote.name, uid, &place)) {
    return {TroubleKind::kNotAvailable, MountsFolder() + ": " + strerror(errno)};
  }
  const core::UniqueFd lock = Lock(place, 2 * patience);
  if (!lock) return {TroubleKind::kTimedOut, "another request is still mounting it"};
  if (IsMounted(place.folder)) {
    const int err = ProbeMount(place.folder, patience);
    if (err == 0) return {};
    // What a task works on is not taken away from it while it may recover.
    if (err != ENOTCONN && HasTaskOf(uid)) return TroubleOfProbe(err);
  }
  Unmount(place);
  return Mount(remote, {uid, gid, place.folder, place.scratch, place.orders, AnswerSeconds(remote)},
               place);
}

std::map<std::string, Trouble>& Kept() {
  static std::map<std::string, Trouble> kept;  // by base URI
  return kept;
}

std::string BaseUriOf(const core::RemoteConfig& remote) {
  return remote.protocol + "://" + remote.name + "/";
}

void AwaitShown(const std::string& uri, std::uint64_t size) {
  MountInfo mount;
  if (!FindBySharePath(uri, &mount) || uri.size() < mount.base_uri.size()) return;
  if (mount.protocol == "sftp") return;  // its helper remembers nothing
  const std::string path = mount.mount_path + "/" + uri.substr(mount.base_uri.size());
  const std::string parent = path.substr(0, path.rfind('/'));
  const auto shows = [&](const std::string& where) {
    struct stat status {};
    return lstat(where.c_str(), &status) == 0 && static_cast<std::uint64_t>(status.st_size) == size;
  };
  // What it made itself is looked at anew with its folder only, which costs a listing.
  const auto shown_anew = [&] { return LookInto(parent) == 0 && shows(path); };
  const core::UniqueFd forget(open(OrderPipe(TAVOVFS::GetActorUID(), mount.name).c_str(),
                                   O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (!forget) return;  // no mount of the server's own
  const auto begin = Clock::now();
  // The next listing shows it.
  while (Clock::now() < begin + kListingPatience) {
    if (shows(ShortPath(path))) return;
    std::this_thread::sleep_for(kLookPause);
  }
  // A server that hangs takes longer for the first look than all others may.
  while (!shown_anew() && Clock::now() < begin + kForgetPatience) {
    if (write(forget.get(), &kOrderToForget, 1) < 0) return;
    std::this_thread::sleep_for(kForgetPause);
  }
}

}  // namespace

std::string AutoMountFolder(uid_t uid, const std::string& name) {
  const std::string top = MountsFolder();
  return top.empty() ? top : top + "/" + std::to_string(uid) + "/" + name;
}

std::string OrderPipe(uid_t uid, const std::string& name) {
  const std::string top = MountsFolder();
  return top.empty() ? top : top + "/orders/" + std::to_string(uid) + "/" + name;
}

int AnswerSeconds(const core::RemoteConfig& remote) {
  return std::min(remote.connect_timeout + kGraceSeconds, kMostAnswerSeconds);
}

bool IsMounted(const std::string& folder) {
  const auto table = core::ReadMountTable();
  return std::any_of(table.begin(), table.end(),
                     [&](const core::MountEntry& entry) { return entry.point == folder; });
}

Trouble EnsureMounted(const core::RemoteConfig& remote, uid_t uid, gid_t gid) {
  Trouble trouble = Ensure(remote, uid, gid);
  if (trouble) {
    syslog(LOG_ERR, "cannot mount %s for user %u: %s (%s)", remote.name.c_str(), uid,
           trouble.words.c_str(), NameOf(trouble.kind));
  }
  Kept()[BaseUriOf(remote)] = trouble;
  return trouble;
}

Trouble TroubleOf(const std::string& path) {
  for (const auto& [uri, trouble] : Kept()) {
    if ((path + "/").starts_with(uri)) return trouble;
  }
  return {};
}

std::string ShortPath(const std::string& path) {
  struct Kept {
    std::string folder;
    core::UniqueFd fd;
  };
  thread_local std::array<Kept, 2> kept;  // the latest first
  const int saved = errno;
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return path;
  const std::string_view folder = std::string_view(path).substr(0, slash);
  if (!kept[0].fd || kept[0].folder != folder) {
    std::swap(kept[0], kept[1]);
    if (!kept[0].fd || kept[0].folder != folder) {
      kept[0].folder = folder;
      kept[0].fd.reset(open(kept[0].folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
  }
  errno = saved;
  const int fd = kept[0].fd.get();
  return fd >= 0 ? "/proc/self/fd/" + std::to_string(fd) + path.substr(slash) : path;
}

bool AwaitFresh(const std::string& path) {
  const int saved = errno;
  MountInfo mount;
  const bool remembers = FindByFullPath(path, &mount) && mount.protocol != "sftp" &&
                         access(OrderPipe(TAVOVFS::GetActorUID(), mount.name).c_str(), F_OK) == 0;
  if (remembers) std::this_thread::sleep_for(std::chrono::milliseconds(kListingMilliseconds));
  errno = saved;
  return remembers;
}

void AwaitUploaded(const std::string& uri, std::uint64_t size) {
  const int saved = errno;
  AwaitShown(uri, size);
  errno = saved;
}

void ReleaseMounts() {
  const std::string top = MountsFolder();
  if (top.empty()) return;
  const std::string below = top + "/";
  const std::string scratch = below + "private/";
  const std::string pipes = below + "orders/";
  for (const core::MountEntry& entry : core::ReadMountTable()) {
    if (!entry.point.starts_with(below)) continue;
    const std::string rest = entry.point.substr(below.size());
    const std::size_t slash = rest.find('/');
    uid_t uid = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), uid);
    if (error != std::errc() || end != rest.data() + slash || HasTaskOf(uid)) continue;
    Unmount({entry.point, scratch + rest, pipes + rest});
  }
}

}  // namespace vfs
