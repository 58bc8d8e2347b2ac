#include "real_path.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "core/unique_fd.h"
#include "path_syntax.h"
#include "support/errors.h"

namespace support {

namespace {

struct Free {
  void operator()(char* text) const { free(text); }
};

std::string Join(const std::string& folder, const std::string& name) {
  return folder.ends_with('/') ? folder + name : folder + "/" + name;
}

std::string ParentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

int ErrnoCode(const std::string& path) {
  const int code = WfmParseErrnoToError(errno, path.c_str(), nullptr);
  // A file in the middle of a path leaves no place for what comes after it.
  return code == WEBFM_NOT_A_FOLDER ? WEBFM_NOT_FOUND : code;
}

int CheckFolder(const std::string& path) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return ErrnoCode(path);
  return S_ISDIR(st.st_mode) ? WEBFM_OK : WEBFM_NOT_FOUND;
}

struct Holder {
  bool known = false;
  dev_t major = 0;
  dev_t minor = 0;
  std::uint64_t mount = 0;

  bool operator==(const Holder& other) const {
    return known == other.known && major == other.major && minor == other.minor &&
           mount == other.mount;
  }
};

Holder HolderOf(const std::string& path) {
  struct statx stx {};
  constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
  if (statx(AT_FDCWD, path.c_str(), kFlags, STATX_TYPE | STATX_MNT_ID, &stx) != 0) return {};
  return {true, stx.stx_dev_major, stx.stx_dev_minor,
          (stx.stx_mask & STATX_MNT_ID) ? stx.stx_mnt_id : 0};
}

// True when the path is written out and leads through no link: two system calls
// then do for one per component. `kind`: O_DIRECTORY for folders alone, or 0.
bool IsRealPath(const std::string& path, unsigned kind) {
  std::vector<std::string_view> names;
  if (!path.starts_with('/') || SplitPath(std::string_view(path).substr(1), &names) != WEBFM_OK) {
    return false;
  }
  open_how how{};
  how.flags = O_PATH | O_CLOEXEC | kind;
  how.resolve = RESOLVE_NO_SYMLINKS;
  const int saved = errno;
  const core::UniqueFd found(
      static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how)));
  errno = saved;
  return found.valid();
}

// The same for a folder. Requests name many entries of one: while its path leads to the
// folder that was opened without links before, one look says it all, and for so long no
// look is needed: whoever swaps the folder then may have done so after the request.
constexpr std::chrono::milliseconds kFolderHolds{5};

bool IsRealFolder(const std::string& path) {
  using Clock = std::chrono::steady_clock;
  struct Answer {
    std::string path;
    struct stat st {};
    Clock::time_point seen;
  };
  thread_local Answer latest;
  struct stat st {};
  const auto now = Clock::now();
  if (path == latest.path && now - latest.seen < kFolderHolds) return true;
  if (path == latest.path && lstat(path.c_str(), &st) == 0 && st.st_dev == latest.st.st_dev &&
      st.st_ino == latest.st.st_ino && S_ISDIR(st.st_mode)) {
    latest.seen = now;
    return true;
  }
  latest.path.clear();
  if (!IsRealPath(path, O_DIRECTORY)) return false;
  if (lstat(path.c_str(), &latest.st) == 0) {
    latest.path = path;
    latest.seen = now;
  }
  return true;
}

// Where the mount begins that holds the folder `point`.
std::string MountPointAbove(std::string point, const Holder& holder) {
  while (point != "/") {
    const std::string parent = ParentOf(point);
    if (!(HolderOf(parent) == holder)) break;
    point = parent;
  }
  return point;
}

}  // namespace

bool RealPath(const std::string& path, std::string* out) {
  if (IsRealPath(path, 0)) {
    *out = path;
    return true;
  }
  const std::unique_ptr<char, Free> resolved(realpath(path.c_str(), nullptr));
  if (!resolved) return false;
  *out = resolved.get();
  return true;
}

int ResolveBelow(const std::string& root, const std::string& rest, std::string* base,
                 std::string* out) {
  const std::size_t slash = rest.rfind('/');
  if (!rest.empty()) {
    // Nearly always so, and it says all there is to know about root and parent.
    std::string parent = slash == std::string::npos ? root : Join(root, rest.substr(0, slash));
    if (IsRealFolder(parent)) {
      *base = root;
      *out = Join(parent, rest.substr(slash + 1));
      return WEBFM_OK;
    }
  }
  if (!RealPath(root, base)) return ErrnoCode(root);
  if (rest.empty()) {
    *out = *base;
    return CheckFolder(*out);
  }
  std::string parent = *base;
  if (slash != std::string::npos) {
    const std::string named = Join(*base, rest.substr(0, slash));
    if (!RealPath(named, &parent)) return ErrnoCode(named);
    if (!IsAtOrBelow(parent, *base)) return WEBFM_NO_PERMISSION;
  }
  const int code = CheckFolder(parent);
  if (code != WEBFM_OK) return code;
  *out = Join(parent, rest.substr(slash + 1));  // npos + 1 is 0
  return WEBFM_OK;
}

std::string MountPointOf(const std::string& path) {
  // Requests name many entries of one folder.
  struct Answer {
    std::string folder;
    Holder holder;
    std::string point;
  };
  thread_local Answer latest;
  const Holder own = HolderOf(path);
  if (path == "/") return path;
  const std::string folder = ParentOf(path);
  const bool same_folder = folder == latest.folder && latest.holder.known;
  if (same_folder && own == latest.holder) return latest.point;
  const Holder holder = HolderOf(folder);
  if (own.known && !(own == holder)) return path;
  if (!same_folder || !(holder == latest.holder)) {
    latest = {folder, holder, MountPointAbove(folder, holder)};
  }
  return latest.point;
}

}  // namespace support
