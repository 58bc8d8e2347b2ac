#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/file.h"
#include "core/unique_fd.h"

namespace {

using core::UniqueFd;

// Descriptors of the upper levels and of the two lowest stay open; other levels
// are reached again through "..", so depth costs neither descriptors nor stack.
// (Two, because ".." works only in a folder that may be searched, and that is
// known of a folder once one in it was opened.)
constexpr std::size_t kHeldLevels = 64;

struct DirCloser {
  void operator()(DIR* dir) const { closedir(dir); }
};

// One folder on the way from the top to the folder being read.
struct Level {
  std::vector<std::string> folders;  // still to be read
  dev_t device;
  ino_t inode;
  UniqueFd fd;  // invalid while a level in between is not needed
};

class SizeWalk {
 public:
  unsigned long long Run(UniqueFd top) {
    Enter(std::move(top));
    while (!levels_.empty()) Step();
    return total_;
  }

 private:
  // Reads the current folder's next subfolder, or goes up when there is none.
  void Step() {
    Level& level = levels_.back();
    if (level.folders.empty()) {
      Leave();
      return;
    }
    const std::string name = std::move(level.folders.back());
    level.folders.pop_back();
    UniqueFd fd(openat(level.fd.get(), name.c_str(),
                       O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) return;
    const std::size_t parent = levels_.size() - 1;
    if (Enter(std::move(fd)) && parent > kHeldLevels) levels_[parent - 1].fd.reset();
  }

  bool Enter(UniqueFd fd) {
    struct stat st;
    if (fstat(fd.get(), &st) != 0) return false;
    Level level{{}, st.st_dev, st.st_ino, std::move(fd)};
    Read(&level);
    levels_.push_back(std::move(level));
    return true;
  }

  void Leave() {
    const UniqueFd child = std::move(levels_.back().fd);
    levels_.pop_back();
    if (levels_.empty() || levels_.back().fd) return;
    Level& level = levels_.back();
    level.fd = UniqueFd(openat(child.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat st;
    if (level.fd && fstat(level.fd.get(), &st) == 0 && st.st_dev == level.device &&
        st.st_ino == level.inode) {
      return;
    }
    // The folder was moved meanwhile: ".." leads elsewhere. Go on from the
    // nearest level that is still held.
    level.fd.reset();
    while (!levels_.empty() && !levels_.back().fd) levels_.pop_back();
  }

  void Read(Level* level) {
    // The stream owns a descriptor of its own; the level's stays for openat.
    UniqueFd own(fcntl(level->fd.get(), F_DUPFD_CLOEXEC, 0));
    const std::unique_ptr<DIR, DirCloser> dir(own ? fdopendir(own.get()) : nullptr);
    if (dir == nullptr) return;
    static_cast<void>(own.release());
    while (const dirent* entry = readdir(dir.get())) Count(*entry, level);
  }

  void Count(const dirent& entry, Level* level) {
    const char* name = entry.d_name;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return;
    if (entry.d_type == DT_DIR) {
      level->folders.emplace_back(name);
      return;
    }
    if (entry.d_type != DT_REG && entry.d_type != DT_UNKNOWN) return;
    struct stat st;
    if (fstatat(level->fd.get(), name, &st, AT_SYMLINK_NOFOLLOW) != 0) return;
    if (S_ISREG(st.st_mode)) total_ += static_cast<unsigned long long>(st.st_size);
    if (S_ISDIR(st.st_mode)) level->folders.emplace_back(name);
  }

  std::vector<Level> levels_;
  unsigned long long total_ = 0;
};

}  // namespace

unsigned long long VLIBGetFullDirSize(const char* path) {
  struct stat st;
  if (path == nullptr || lstat(path, &st) != 0) return 0;
  if (S_ISREG(st.st_mode)) return static_cast<unsigned long long>(st.st_size);
  if (!S_ISDIR(st.st_mode)) return 0;
  UniqueFd top(open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return top ? SizeWalk().Run(std::move(top)) : 0;
}
