// Counts what lies below a folder.
//
// The folders that wait are held in a stack of their own, not a thread's, and each
// thread has at most one folder open: the depth of a tree is bounded only by the
// length of its paths. With many folders other threads take their share of them.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "core/error.h"
#include "core/helper_thread.h"
#include "core/unique_fd.h"
#include "prepare/path_rules.h"
#include "support/path_info.h"
#include "vfs/vfs.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

// Below this starting a thread costs more than it saves,
constexpr std::size_t kFoldersForHelp = 8;
// but on a mount all time goes into waiting for answers.
constexpr std::size_t kFoldersForHelpFar = 2;
constexpr std::size_t kMostHelpersFar = 3;
constexpr std::chrono::seconds kLongestWait{1};

struct CloseDir {
  void operator()(DIR* dir) const { closedir(dir); }
};
using OpenDir = std::unique_ptr<DIR, CloseDir>;

// A folder that was opened, kept for the ones below it.
struct Place {
  std::string path;
  dev_t device = 0;
  ino_t inode = 0;
  std::shared_ptr<const Place> parent;
};

struct Waiting {
  std::string name;  // the whole path without a parent
  bool isLink = false;
  std::shared_ptr<const Place> parent;
};

// What one folder holds.
struct Found {
  std::vector<Waiting> folders;
  std::uint64_t files = 0;
  long long bytes = 0;
  int failedAt = 0;  // the log number of why it cannot be entered
};

// How many threads may ask beside the calling one. An SFTP mount asks all over one connection;
// another server may not like two questions at once.
std::size_t MostHelpers(const char* path) {
  vfs::MountInfo mount;
  if (!vfs::FindByFullPath(path, &mount)) return 1;
  return mount.protocol == "sftp" ? kMostHelpersFar : 0;
}

bool Stopped() { return _cancelRequested != 0; }

// Opens a folder for reading: 0, or the number of why it cannot be entered. One that
// can be entered but not listed gives no descriptor: it shows no entries.
int OpenFolder(const std::string& path, core::UniqueFd& folder, struct stat& status) {
  folder.reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  if (!folder) {
    if (stat(path.c_str(), &status) != 0) return 708;
    if (!S_ISDIR(status.st_mode)) return 713;
  }
  const bool entered = folder ? fstatat(folder.get(), ".", &status, 0) == 0
                              : faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
  return entered ? 0 : 716;
}

// A link to a folder that is being scanned would never end.
bool IsBelowItself(const struct stat& status, const Place* above) {
  for (; above != nullptr; above = above->parent.get()) {
    if (above->device == status.st_dev && above->inode == status.st_ino) return true;
  }
  return false;
}

class DirectoryScan {
 public:
  explicit DirectoryScan(const char* path)
      : toCloud_(WfmLibIsCloudVFSFullPath(_destPathInfo.realPath.c_str())),
        far_(WfmLibIsVFSFullPath(path)),
        mostHelpers_(MostHelpers(path)),
        waiting_{{path, false, nullptr}} {}

  long long Run();

 private:
  void StartHelper();
  bool Step(bool main);
  Found Look(const Waiting& folder) const;
  void CountEntry(int folder, const dirent& entry, const std::shared_ptr<const Place>& place,
                  Found& found) const;
  void Publish();

  const bool toCloud_;
  const bool far_;
  const std::size_t mostHelpers_;

  // Shared by the threads.
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Waiting> waiting_;  // the next one last
  int busy_ = 0;
  int failedAt_ = 0;
  std::uint64_t files_ = 0;
  std::uint64_t folders_ = 0;
  long long sum_ = 0;

  // The calling thread's.
  std::uint64_t filesTold_ = 0;
  std::uint64_t foldersTold_ = 0;
  long long sumTold_ = 0;
  std::vector<std::thread> helpers_;
};

long long DirectoryScan::Run() {
  do {
    StartHelper();
    Publish();
    MVCPUpdateProgress(0, 0);
  } while (Step(true));
  for (std::thread& helper : helpers_) helper.join();
  Publish();
  if (failedAt_ != 0) VLIBCErrSetEx(core::kErrIllegalName, kModuleName, failedAt_);
  return sum_;
}

void DirectoryScan::StartHelper() {
  if (helpers_.size() == mostHelpers_) return;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.size() < (far_ ? kFoldersForHelpFar : kFoldersForHelp)) return;
  }
  try {
    helpers_.push_back(core::StartHelper([this] {
      while (Step(false)) {
      }
    }));
  } catch (const std::system_error&) {
    // One thread does it, too.
  }
}

// Counts the next folder, or waits for one. False when nothing is left to do.
bool DirectoryScan::Step(bool main) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (waiting_.empty() && busy_ > 0) {
    // The calling thread has progress to tell meanwhile.
    if (main) {
      changed_.wait_for(lock, kLongestWait);
    } else {
      changed_.wait(lock, [this] { return !waiting_.empty() || busy_ == 0; });
    }
  }
  if (waiting_.empty() || (Stopped() && waiting_.back().parent != nullptr)) {
    return main && busy_ > 0;
  }
  const Waiting folder = std::move(waiting_.back());
  waiting_.pop_back();
  ++busy_;
  lock.unlock();
  Found found = Look(folder);
  lock.lock();
  --busy_;
  files_ += found.files;
  sum_ += found.bytes;
  if (found.failedAt != 0) failedAt_ = found.failedAt;
  if (folder.parent != nullptr) ++folders_;
  std::move(found.folders.begin(), found.folders.end(), std::back_inserter(waiting_));
  changed_.notify_all();
  return true;
}

// The process-wide counters are the calling thread's alone.
void DirectoryScan::Publish() {
  const std::lock_guard<std::mutex> lock(mutex_);
  _foundFileNum += files_ - std::exchange(filesTold_, files_);
  _foundDirNum += folders_ - std::exchange(foldersTold_, folders_);
  _foundFileSize += static_cast<std::uint64_t>(sum_ - std::exchange(sumTold_, sum_));
}

Found DirectoryScan::Look(const Waiting& folder) const {
  Found found;
  auto place = std::make_shared<Place>();
  place->path = folder.parent == nullptr ? folder.name : folder.parent->path + "/" + folder.name;
  place->parent = folder.parent;
  core::UniqueFd fd;
  struct stat status {};
  found.failedAt = OpenFolder(place->path, fd, status);
  if (found.failedAt != 0 || !fd) return found;
  if (folder.isLink && IsBelowItself(status, folder.parent.get())) return found;
  place->device = status.st_dev;
  place->inode = status.st_ino;
  const OpenDir dir(fdopendir(fd.get()));
  if (!dir) return found;
  (void)fd.release();
  while (const dirent* entry = readdir(dir.get())) {
    if (entry->d_name[0] == '.') continue;
    CountEntry(dirfd(dir.get()), *entry, place, found);
    if (Stopped()) {
      found.folders.clear();
      break;
    }
  }
  return found;
}

void DirectoryScan::CountEntry(int folder, const dirent& entry,
                               const std::shared_ptr<const Place>& place, Found& found) const {
  struct stat status {};
  mode_t type = DTTOIF(entry.d_type);
  if (entry.d_type != DT_DIR) {
    // On a mount the look-up of the name brings the size: no second question to the server.
    const int flags = far_ ? AT_STATX_DONT_SYNC : 0;
    if (fstatat(folder, entry.d_name, &status, flags) != 0) return;
    type = status.st_mode & S_IFMT;
  }
  if (type == S_IFREG) {
    ++found.files;
    found.bytes += status.st_size;
  } else if (type == S_IFDIR) {
    if (toCloud_ && std::strcmp(entry.d_name, "@eaDir") == 0) return;
    found.folders.push_back({entry.d_name, entry.d_type != DT_DIR, place});
  }
}

}  // namespace

long long MVCPScanDirectory(const char* path) {
  if (path == nullptr || *path == '\0') {
    MVCPUpdateProgress(0, 0);
    VLIBCErrSetEx(core::kErrBadArgument, kModuleName, 697);
    return 0;
  }
  // A process without a working directory has lost its ground.
  std::array<char, kLongestPath + 1> current{};
  if (getcwd(current.data(), current.size()) == nullptr) {
    MVCPUpdateProgress(0, 0);
    LogErrorWithPrefix("TAVO.Fennox.CopyMove (703) ", "Failed to get current directory");
    return 0;
  }
  return DirectoryScan(path).Run();
}

}  // namespace Fennox
