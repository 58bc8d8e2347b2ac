// faulty_folder FOLDER MOUNT_POINT: shows a folder as a file system whose operations
// fail when a test says so.
//
// The file /.fault, which no listing shows, says what fails: "write 17 once 5" lets the
// 17th write from now on fail with error number 5, "write 17 on 5" that and all after it,
// "none" lets nothing fail. Read, it tells how many operations failed and how many of
// each kind there were since it was last written to.
#define FUSE_USE_VERSION 31
#include <dirent.h>
#include <fcntl.h>
#include <fuse.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string>

namespace {

constexpr char kControl[] = "/.fault";

// One thread serves the mount, so that the n-th operation is always the same one.
class Faults {
 public:
  bool Set(const std::string& text) {
    std::istringstream words(text);
    std::string often;
    Faults next;
    words >> next.operation_;
    if (next.operation_ != "none") {
      if (!(words >> next.nth_ >> often >> next.error_)) return false;
      if (often != "once" && often != "on") return false;
      next.once_ = often == "once";
    }
    *this = next;
    return true;
  }
  std::string Report() const {
    std::ostringstream text;
    text << "failed " << failed_ << '\n';
    for (const auto& [operation, count] : counts_) text << operation << ' ' << count << '\n';
    return text.str();
  }
  // Counts an operation. 0, or the negative error with which it is to fail.
  int Meet(const std::string& operation) {
    const std::uint64_t number = ++counts_[operation];
    if (operation != operation_ || number < nth_ || (once_ && number > nth_)) return 0;
    ++failed_;
    return -error_;
  }

 private:
  std::string operation_ = "none";
  std::uint64_t nth_ = 0;
  bool once_ = true;
  int error_ = 0;
  std::uint64_t failed_ = 0;
  std::map<std::string, std::uint64_t> counts_;
};

Faults faults;
int root = -1;  // the folder that is shown

// An open file that has been removed has no path any more.
bool IsControl(const char* path) { return path != nullptr && std::strcmp(path, kControl) == 0; }

int Descriptor(const fuse_file_info* file) { return static_cast<int>(file->fh); }

const char* Below(const char* path) { return path[1] == '\0' ? "." : path + 1; }

// extended attributes are only had by path; this one does not follow links.
std::string Absolute(const char* path) {
  return "/proc/self/fd/" + std::to_string(root) + "/" + Below(path);
}

int Result(std::int64_t answer) { return answer < 0 ? -errno : static_cast<int>(answer); }

int GetAttributes(const char* path, struct stat* status, fuse_file_info* file) {
  if (IsControl(path)) {
    *status = {};
    status->st_mode = S_IFREG | 0600;
    status->st_nlink = 1;
    return 0;
  }
  // The root stays in sight: the way to the control file leads through it.
  const bool isRoot = path != nullptr && std::strcmp(path, "/") == 0;
  if (const int error = isRoot ? 0 : faults.Meet("getattr")) return error;
  if (file != nullptr) return Result(fstat(Descriptor(file), status));
  return Result(fstatat(root, Below(path), status, AT_SYMLINK_NOFOLLOW));
}

int Open(const char* path, fuse_file_info* file) {
  if (IsControl(path)) {
    file->direct_io = 1;
    return 0;
  }
  if (const int error = faults.Meet("open")) return error;
  const int fd = openat(root, Below(path), file->flags | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return -errno;
  file->fh = static_cast<std::uint64_t>(fd);
  return 0;
}

int Create(const char* path, mode_t mode, fuse_file_info* file) {
  if (const int error = faults.Meet("create")) return error;
  const int fd = openat(root, Below(path), file->flags | O_CREAT | O_NOFOLLOW | O_CLOEXEC, mode);
  if (fd < 0) return -errno;
  file->fh = static_cast<std::uint64_t>(fd);
  return 0;
}

int Read(const char* path, char* buffer, std::size_t size, off_t offset, fuse_file_info* file) {
  if (IsControl(path)) {
    const std::string text = faults.Report();
    if (static_cast<std::size_t>(offset) >= text.size()) return 0;
    return static_cast<int>(text.copy(buffer, size, static_cast<std::size_t>(offset)));
  }
  if (const int error = faults.Meet("read")) return error;
  return Result(pread(Descriptor(file), buffer, size, offset));
}

int Write(const char* path, const char* data, std::size_t size, off_t offset,
          fuse_file_info* file) {
  if (IsControl(path)) {
    return faults.Set(std::string(data, size)) ? static_cast<int>(size) : -EINVAL;
  }
  if (const int error = faults.Meet("write")) return error;
  return Result(pwrite(Descriptor(file), data, size, offset));
}

int Flush(const char* path, fuse_file_info* /*unused*/) {
  return IsControl(path) ? 0 : faults.Meet("flush");
}

int Release(const char* path, fuse_file_info* file) {
  return IsControl(path) ? 0 : Result(close(Descriptor(file)));
}

int Sync(const char* path, int dataOnly, fuse_file_info* file) {
  if (IsControl(path)) return 0;
  if (const int error = faults.Meet("fsync")) return error;
  const int fd = Descriptor(file);
  return Result(dataOnly != 0 ? fdatasync(fd) : fsync(fd));
}

int Truncate(const char* path, off_t size, fuse_file_info* file) {
  if (IsControl(path)) return 0;
  if (const int error = faults.Meet("setattr")) return error;
  if (file != nullptr) return Result(ftruncate(Descriptor(file), size));
  return Result(truncate(Absolute(path).c_str(), size));
}

int SetMode(const char* path, mode_t mode, fuse_file_info* file) {
  if (const int error = faults.Meet("setattr")) return error;
  if (file != nullptr) return Result(fchmod(Descriptor(file), mode));
  return Result(fchmodat(root, Below(path), mode, 0));
}

int SetOwner(const char* path, uid_t user, gid_t group, fuse_file_info* file) {
  if (const int error = faults.Meet("setattr")) return error;
  if (file != nullptr) return Result(fchown(Descriptor(file), user, group));
  return Result(fchownat(root, Below(path), user, group, AT_SYMLINK_NOFOLLOW));
}

int SetTimes(const char* path, const timespec times[2], fuse_file_info* file) {
  if (const int error = faults.Meet("setattr")) return error;
  if (file != nullptr) return Result(futimens(Descriptor(file), times));
  return Result(utimensat(root, Below(path), times, AT_SYMLINK_NOFOLLOW));
}

int List(const char* path, void* into, fuse_fill_dir_t fill, off_t /*unused*/,
         fuse_file_info* /*unused*/, fuse_readdir_flags /*unused*/) {
  if (const int error = faults.Meet("readdir")) return error;
  const int fd = openat(root, Below(path), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return -errno;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(fdopendir(fd), closedir);
  if (!folder) return -errno;
  while (const dirent* entry = readdir(folder.get())) {
    struct stat status {};
    status.st_ino = entry->d_ino;
    status.st_mode = DTTOIF(entry->d_type);
    if (fill(into, entry->d_name, &status, 0, fuse_fill_dir_flags{}) != 0) return -ENOMEM;
  }
  return 0;
}

int MakeFolder(const char* path, mode_t mode) {
  if (const int error = faults.Meet("create")) return error;
  return Result(mkdirat(root, Below(path), mode));
}

int MakeLink(const char* target, const char* path) {
  if (const int error = faults.Meet("create")) return error;
  return Result(symlinkat(target, root, Below(path)));
}

int ReadLink(const char* path, char* buffer, std::size_t size) {
  if (const int error = faults.Meet("read")) return error;
  const ssize_t length = readlinkat(root, Below(path), buffer, size - 1);
  if (length < 0) return -errno;
  buffer[length] = '\0';
  return 0;
}

int HardLink(const char* from, const char* to) {
  if (const int error = faults.Meet("link")) return error;
  return Result(linkat(root, Below(from), root, Below(to), 0));
}

int Rename(const char* from, const char* to, unsigned int flags) {
  if (const int error = faults.Meet("rename")) return error;
  return Result(renameat2(root, Below(from), root, Below(to), flags));
}

int RemoveFile(const char* path) {
  if (const int error = faults.Meet("unlink")) return error;
  return Result(unlinkat(root, Below(path), 0));
}

int RemoveFolder(const char* path) {
  if (const int error = faults.Meet("unlink")) return error;
  return Result(unlinkat(root, Below(path), AT_REMOVEDIR));
}

int SetAttribute(const char* path, const char* name, const char* value, std::size_t size,
                 int flags) {
  if (const int error = faults.Meet("setattr")) return error;
  return Result(lsetxattr(Absolute(path).c_str(), name, value, size, flags));
}

int GetAttribute(const char* path, const char* name, char* value, std::size_t size) {
  if (const int error = faults.Meet("getattr")) return error;
  return Result(lgetxattr(Absolute(path).c_str(), name, value, size));
}

int ListAttributes(const char* path, char* names, std::size_t size) {
  if (const int error = faults.Meet("getattr")) return error;
  return Result(llistxattr(Absolute(path).c_str(), names, size));
}

void* Init(fuse_conn_info* /*unused*/, fuse_config* config) {
  config->use_ino = 1;
  config->hard_remove = 1;
  // Everything is asked for again, so that nothing is spared a fault.
  config->entry_timeout = config->attr_timeout = config->negative_timeout = 0;
  return nullptr;
}

fuse_operations Operations() {
  fuse_operations all{};
  all.init = Init;
  all.getattr = GetAttributes;
  all.open = Open;
  all.create = Create;
  all.read = Read;
  all.write = Write;
  all.flush = Flush;
  all.release = Release;
  all.fsync = Sync;
  all.truncate = Truncate;
  all.chmod = SetMode;
  all.chown = SetOwner;
  all.utimens = SetTimes;
  all.readdir = List;
  all.mkdir = MakeFolder;
  all.symlink = MakeLink;
  all.readlink = ReadLink;
  all.link = HardLink;
  all.rename = Rename;
  all.unlink = RemoveFile;
  all.rmdir = RemoveFolder;
  all.setxattr = SetAttribute;
  all.getxattr = GetAttribute;
  all.listxattr = ListAttributes;
  return all;
}

}  // namespace

int main(int count, char** words) {
  if (count != 3) {
    std::fprintf(stderr, "usage: faulty_folder FOLDER MOUNT_POINT\n");
    return 2;
  }
  root = open(words[1], O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (root < 0) {
    std::perror(words[1]);
    return 1;
  }
  umask(0);
  std::string foreground = "-f";
  std::string single = "-s";
  std::string option = "-o";
  std::string options = "default_permissions";
  std::array<char*, 6> arguments{words[0],      foreground.data(), single.data(),
                                 option.data(), options.data(),    words[2]};
  const fuse_operations operations = Operations();
  return fuse_main(static_cast<int>(arguments.size()), arguments.data(), &operations, nullptr);
}
