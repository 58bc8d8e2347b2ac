#include "folder_list.h"

#include <dirent.h>
#include <fcntl.h>
#include <json/value.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "core/unique_fd.h"
#include "core/utf8.h"
#include "envelope.h"
#include "support/errors.h"
#include "support/path_info.h"
#include "support/privilege.h"

namespace host {
namespace {

struct CloseDir {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
using Dir = std::unique_ptr<DIR, CloseDir>;

std::string Refuse(int code, const std::string& path) {
  Json::Value detail(Json::objectValue);
  detail["path"] = path;
  return FailureText(code, detail);
}

// The folder's place with every link resolved. The resolver follows links in all
// but the last component, so it is asked for a name inside the folder.
bool RealFolder(const std::string& user, const std::string& path, std::string* real) {
  PathInfo info;
  const std::string inside = path.back() == '/' ? path + "x" : path + "/x";
  if (!PathInfoFactory::create(user.c_str(), inside, info)) return false;
  const std::size_t slash = info.realPath.rfind('/');
  if (slash == std::string::npos) {
    support::SetErr(WEBFM_NOT_FOUND);
    return false;
  }
  *real = slash == 0 ? "/" : info.realPath.substr(0, slash);
  return true;
}

// Why a folder could not be resolved: a file stands in its place, or what the resolver said.
int ReasonFor(const std::string& user, const std::string& path) {
  const int code = WfmLibGetErr();
  PathInfo info;
  struct stat st {};
  const bool other = code == WEBFM_NOT_FOUND && PathInfoFactory::create(user.c_str(), path, info) &&
                     ::lstat(info.realPath.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
  return other ? WEBFM_NOT_A_FOLDER : code;
}

// The resolved path holds no link; one that appears since then is an error.
core::UniqueFd OpenFolder(const std::string& real) {
  open_how how{};
  how.flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS;
  long fd = ::syscall(SYS_openat2, AT_FDCWD, real.c_str(), &how, sizeof how);
  if (fd < 0 && errno == ENOSYS) {
    fd = ::open(real.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
  }
  return core::UniqueFd(static_cast<int>(fd));
}

const char* TypeName(mode_t mode) {
  if (S_ISREG(mode)) return "file";
  if (S_ISDIR(mode)) return "folder";
  if (S_ISLNK(mode)) return "link";
  return "other";
}

Json::Value EntryValue(const std::string& name, const struct stat& st) {
  Json::Value value(Json::objectValue);
  value["name"] = name;
  value["type"] = TypeName(st.st_mode);
  value["size"] = Json::Value::UInt64(S_ISREG(st.st_mode) ? st.st_size : 0);
  value["mtime"] = Json::Value::Int64(st.st_mtime);
  value["hidden"] = name.front() == '.' || name == "@eaDir";
  if (!core::IsUtf8(name)) value["damaged_name"] = true;
  return value;
}

// Appends the entries, separated by commas. False with errno when the folder cannot
// be read to its end. Text is made entry by entry: a folder may have millions.
bool AppendEntries(DIR* dir, std::string* text) {
  bool first = true;
  while (true) {
    errno = 0;
    const dirent* entry = ::readdir(dir);
    if (entry == nullptr) return errno == 0;
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    struct stat st {};
    if (::fstatat(::dirfd(dir), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) continue;
      st = {};
      st.st_mode = DTTOIF(entry->d_type);
    }
    if (!first) *text += ',';
    first = false;
    *text += JsonText(EntryValue(name, st));
  }
}

}  // namespace

std::string FolderListText(const std::string& user, const std::string& path) {
  int type = 0;
  int flags = 0;
  if (WfmLibGetPrivilege(path.c_str(), user.c_str(), nullptr, &type, &flags) != 0) {
    return Refuse(WfmLibGetErr(), path);
  }
  if (type < 1) return Refuse(WEBFM_NO_PERMISSION, path);
  std::string real;
  if (!RealFolder(user, path, &real)) return Refuse(ReasonFor(user, path), path);
  core::UniqueFd fd = OpenFolder(real);
  if (!fd) return Refuse(WfmParseErrnoToError(errno, real.c_str(), nullptr), path);
  const Dir dir(::fdopendir(fd.get()));
  if (!dir) return Refuse(WfmParseErrnoToError(errno, real.c_str(), nullptr), path);
  static_cast<void>(fd.release());

  std::string text = R"({"data":{"path":)" + JsonText(Json::Value(path)) + R"(,"entries":[)";
  if (!AppendEntries(dir.get(), &text)) {
    return Refuse(WfmParseErrnoToError(errno, real.c_str(), nullptr), path);
  }
  return text + R"(]},"success":true})";
}

}  // namespace host
