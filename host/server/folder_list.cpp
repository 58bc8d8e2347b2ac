#include "folder_list.h"

#include <dirent.h>
#include <fcntl.h>
#include <json/value.h>
#include <json/writer.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

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

// Written as text: a value for each of many entries would take most of the time.
void AppendEntry(const ListEntry& entry, std::string* text) {
  const bool damaged = !core::IsUtf8(entry.name);
  const std::string shown = damaged ? core::ReplaceInvalidUtf8(entry.name) : entry.name;
  *text += R"({"name":)" + Json::valueToQuotedString(shown.c_str()) + R"(,"type":")" +
           TypeName(entry.mode) + R"(","size":)" + std::to_string(entry.size) + R"(,"mtime":)" +
           std::to_string(entry.mtime) + R"(,"hidden":)" +
           (IsHidden(entry.name) ? "true" : "false") + (damaged ? R"(,"damaged_name":true})" : "}");
}

// Fills all but the name. False when there is no such entry. One that cannot be looked at
// keeps its type.
bool Look(int folder, ListEntry* entry) {
  struct stat st {};
  if (::fstatat(folder, entry->name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno != ENOENT;
  }
  entry->mode = st.st_mode;
  entry->size = S_ISREG(st.st_mode) ? st.st_size : 0;
  entry->mtime = st.st_mtime;
  return true;
}

// Offers all entries to the page. False with errno when the folder cannot be read to its end.
bool ReadEntries(DIR* dir, bool look, ListPage* page) {
  while (true) {
    errno = 0;
    const dirent* found = ::readdir(dir);
    if (found == nullptr) return errno == 0;
    ListEntry entry;
    entry.name = found->d_name;
    if (entry.name == "." || entry.name == "..") continue;
    entry.mode = DTTOIF(found->d_type);
    if ((look || found->d_type == DT_UNKNOWN) && !Look(::dirfd(dir), &entry)) continue;
    page->Offer(std::move(entry));
  }
}

void LookUpNames(int folder, const std::vector<std::string>& names, ListPage* page) {
  for (const std::string& name : names) {
    ListEntry entry;
    entry.name = name;
    // What cannot be looked at need not be there.
    if (Look(folder, &entry) && entry.mode != 0) page->Offer(std::move(entry));
  }
}

std::string PageText(const std::string& path, int folder, ListPage* page) {
  std::string next;
  std::vector<ListEntry> entries = page->Take(&next);
  std::string text = R"({"data":{"path":)" + JsonText(Json::Value(path)) + R"(,"entries":[)";
  const char* separator = "";
  for (ListEntry& entry : entries) {
    if (!Look(folder, &entry)) continue;  // it went meanwhile
    text += separator;
    separator = ",";
    AppendEntry(entry, &text);
  }
  text += R"(],"total":)" + std::to_string(page->total()) + R"(,"left_out":)" +
          std::to_string(page->left_out());
  if (!next.empty()) text += R"(,"next":")" + next + '"';
  return text + R"(},"success":true})";
}

}  // namespace

std::string FolderListText(const std::string& user, const std::string& path,
                           const ListRequest& request) {
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

  ListPage page(request);
  // Names alone are sorted without a look at what bears them.
  const bool look = request.sort != ListRequest::Sort::kName;
  if (request.only_names) {
    LookUpNames(::dirfd(dir.get()), request.names, &page);
  } else if (!ReadEntries(dir.get(), look, &page)) {
    return Refuse(WfmParseErrnoToError(errno, real.c_str(), nullptr), path);
  }
  return PageText(path, ::dirfd(dir.get()), &page);
}

}  // namespace host
