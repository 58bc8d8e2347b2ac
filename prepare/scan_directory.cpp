// Counts what lies below a folder.
//
// A stack of its own, not the thread's, holds the folders on the way down, and
// at most one folder is open at a time: the depth of a tree is bounded only by
// the length of its paths.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "core/error.h"
#include "core/unique_fd.h"
#include "support/path_info.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

constexpr std::size_t kLongestPath = 4096;

struct CloseDir {
  void operator()(DIR* dir) const { closedir(dir); }
};
using OpenDir = std::unique_ptr<DIR, CloseDir>;

struct SubFolder {
  std::string name;
  bool isLink;
};

// A folder on the way from the scanned one down to the current one.
struct Level {
  std::size_t pathLength = 0;
  dev_t device = 0;
  ino_t inode = 0;
  std::vector<SubFolder> waiting;  // still to be scanned, the last one first
};

bool Stopped() { return _cancelRequested != 0; }

class DirectoryScan {
 public:
  explicit DirectoryScan(const char* path)
      : path_(path), toCloud_(WfmLibIsCloudVFSFullPath(_destPathInfo.realPath.c_str())) {}

  long long Run();

 private:
  void Enter(bool byLink);
  bool CountFiles(DIR* dir, Level& level);
  void CountEntry(int folder, const dirent& entry, Level& level);
  bool IsBelowItself(const struct stat& status) const;

  std::string path_;
  const bool toCloud_;
  std::vector<Level> levels_;
  long long sum_ = 0;
};

// Opens a folder for reading. False when it cannot be entered. One that can be
// entered but not listed gives no descriptor: it shows no entries.
bool OpenFolder(const std::string& path, core::UniqueFd& folder, struct stat& status) {
  folder.reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  if (!folder) {
    if (stat(path.c_str(), &status) != 0) {
      VLIBCErrSetEx(core::kErrIllegalName, kModuleName, 708);
      return false;
    }
    if (!S_ISDIR(status.st_mode)) {
      VLIBCErrSetEx(core::kErrIllegalName, kModuleName, 713);
      return false;
    }
  }
  const bool entered = folder ? fstatat(folder.get(), ".", &status, 0) == 0
                              : faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
  if (!entered) VLIBCErrSetEx(core::kErrIllegalName, kModuleName, 716);
  return entered;
}

long long DirectoryScan::Run() {
  Enter(false);
  while (!levels_.empty()) {
    Level& level = levels_.back();
    if (level.waiting.empty() || Stopped()) {
      // A folder counts when it is done with; the scanned one itself does not.
      levels_.pop_back();
      if (!levels_.empty()) ++_foundDirNum;
      continue;
    }
    const SubFolder next = std::move(level.waiting.back());
    level.waiting.pop_back();
    path_.resize(level.pathLength);
    path_ += '/';
    path_ += next.name;
    Enter(next.isLink);
  }
  return sum_;
}

// Pushes the folder at path_ and counts its files.
void DirectoryScan::Enter(bool byLink) {
  MVCPUpdateProgress(0, 0);
  Level level;
  level.pathLength = path_.size();
  core::UniqueFd folder;
  struct stat status {};
  const bool entered = OpenFolder(path_, folder, status);
  if (entered && folder && !(byLink && IsBelowItself(status))) {
    level.device = status.st_dev;
    level.inode = status.st_ino;
    OpenDir dir(fdopendir(folder.get()));
    if (dir) {
      (void)folder.release();
      if (!CountFiles(dir.get(), level)) level.waiting.clear();
    }
  }
  levels_.push_back(std::move(level));
}

// A link to a folder that is being scanned would never end.
bool DirectoryScan::IsBelowItself(const struct stat& status) const {
  for (const Level& level : levels_) {
    if (level.device == status.st_dev && level.inode == status.st_ino) return true;
  }
  return false;
}

// False when a stop was seen.
bool DirectoryScan::CountFiles(DIR* dir, Level& level) {
  while (const dirent* entry = readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    CountEntry(dirfd(dir), *entry, level);
    if (Stopped()) return false;
  }
  return true;
}

void DirectoryScan::CountEntry(int folder, const dirent& entry, Level& level) {
  struct stat status {};
  mode_t type = DTTOIF(entry.d_type);
  if (entry.d_type != DT_DIR) {
    if (fstatat(folder, entry.d_name, &status, 0) != 0) return;
    type = status.st_mode & S_IFMT;
  }
  if (type == S_IFREG) {
    ++_foundFileNum;
    _foundFileSize += static_cast<std::uint64_t>(status.st_size);
    sum_ += status.st_size;
  } else if (type == S_IFDIR) {
    if (toCloud_ && std::strcmp(entry.d_name, "@eaDir") == 0) return;
    level.waiting.push_back({entry.d_name, entry.d_type != DT_DIR});
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
