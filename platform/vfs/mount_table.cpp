#include "mount_table.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "auto_mount.h"

namespace vfs {
namespace {

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool Holds(const std::string& folder, const std::string& path) {
  return !folder.empty() && StartsWith(path, folder) &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

// The path that real paths on the mount begin with. Empty when it is no folder.
std::string RealFolder(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr),
                                                         &std::free);
  struct stat status {};
  if (real == nullptr || stat(real.get(), &status) != 0 || !S_ISDIR(status.st_mode)) return {};
  return real.get();
}

std::string FolderOf(const core::RemoteConfig& remote, uid_t uid) {
  if (remote.mount != "auto") {
    return remote.mount.starts_with('/') ? RealFolder(remote.mount) : std::string();
  }
  const std::string folder = AutoMountFolder(uid, remote.name);
  return IsMounted(folder) ? folder : std::string();
}

std::string WithoutLastSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

MountInfo Describe(const core::RemoteConfig& remote, const std::string& folder) {
  MountInfo mount;
  mount.name = remote.name;
  mount.protocol = remote.protocol;
  mount.base_uri = remote.protocol + "://" + remote.name + "/";
  mount.mount_path = folder;
  mount.remote_base = WithoutLastSlashes(remote.path);
  mount.code_page = remote.code_page;
  mount.max_connections = remote.max_connections;
  mount.cloud = remote.protocol == "dropbox";
  mount.users = remote.users;
  return mount;
}

// What the table depends on, as one text.
std::string KeyOf(const std::vector<core::RemoteConfig>& remotes, uid_t uid) {
  std::string key = std::to_string(uid) + ' ' + core::CurrentConfig().server.state + '\n';
  for (const core::RemoteConfig& remote : remotes) {
    for (const std::string* part :
         {&remote.protocol, &remote.name, &remote.mount, &remote.path, &remote.code_page}) {
      key.append(*part).push_back('\n');
    }
    for (const std::string& user : remote.users) key.append(user).push_back(',');
    key.append(std::to_string(remote.max_connections)).push_back('\n');
  }
  return key;
}

// Each thread keeps its own table, so that a call per file takes no lock.
const MountTable& KnownMounts() {
  static const MountTable none;
  thread_local std::string key;
  thread_local MountTable table;
  const auto& remotes = core::CurrentConfig().remotes;
  if (remotes.empty()) return none;
  const uid_t uid = TAVOVFS::GetActorUID();
  if (std::string now = KeyOf(remotes, uid); now != key) {
    table = MountsOf(remotes, uid);
    key = std::move(now);
  }
  return table;
}

}  // namespace

MountTable MountsOf(const std::vector<core::RemoteConfig>& remotes, uid_t uid) {
  const int saved = errno;
  MountTable table;
  for (const core::RemoteConfig& remote : remotes) {
    const std::string folder = FolderOf(remote, uid);
    // The root folder as a mount would make every path a remote one.
    if (folder.size() > 1) table.push_back(Describe(remote, folder));
  }
  errno = saved;
  return table;
}

std::optional<std::string> BaseUriOf(const std::string& path) {
  const std::size_t scheme = path.find("://");
  if (scheme == std::string::npos) return std::nullopt;
  Json::Value description;
  if (!TAVOVFS::Protocol::GetProtocol(path.substr(0, scheme).c_str(), description)) {
    return std::nullopt;
  }
  const std::size_t name = scheme + 3;
  const std::size_t end = std::min(path.find('/', name), path.size());
  if (end == name) return std::nullopt;
  return path.substr(0, end) + "/";
}

std::optional<MountInfo> FindByUri(const MountTable& table, const std::string& path) {
  const auto base = BaseUriOf(path);
  if (!base) return std::nullopt;
  for (const MountInfo& mount : table) {
    if (mount.base_uri == *base) return mount;
  }
  return std::nullopt;
}

std::optional<MountInfo> FindByLocalPath(const MountTable& table, const std::string& path) {
  const MountInfo* best = nullptr;
  for (const MountInfo& mount : table) {
    if (Holds(mount.mount_path, path) &&
        (best == nullptr || mount.mount_path.size() > best->mount_path.size())) {
      best = &mount;
    }
  }
  if (best == nullptr) return std::nullopt;
  return *best;
}

bool FindBySharePath(const std::string& path, MountInfo* out) {
  if (path.starts_with('/')) return false;  // no base URI does
  const auto mount = FindByUri(KnownMounts(), path);
  if (mount) *out = *mount;
  return mount.has_value();
}

bool FindByFullPath(const std::string& path, MountInfo* out) {
  const auto mount = FindByLocalPath(KnownMounts(), path);
  if (mount) *out = *mount;
  return mount.has_value();
}

}  // namespace vfs
