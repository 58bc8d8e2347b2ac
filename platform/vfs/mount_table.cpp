#include "mount_table.h"

#include <algorithm>
#include <string_view>

namespace vfs {
namespace {

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool Holds(const std::string& folder, const std::string& path) {
  return !folder.empty() && StartsWith(path, folder) &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

const MountTable& KnownMounts() {
  static const MountTable table;
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
