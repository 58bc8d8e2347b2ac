#include "fake_mounts.h"

#include "core/fs_type.h"

FakeMount& AddMount(const std::string& protocol, const std::string& name,
                    const std::string& folder) {
  FakeMount mount;
  mount.info.name = name;
  mount.info.protocol = protocol;
  mount.info.base_uri = protocol + "://" + name + "/";
  mount.info.mount_path = folder;
  mount.info.remote_base = "/srv/" + name;
  mount.info.code_page = "UTF-8";
  mount.info.cloud = protocol == "dropbox" || protocol == "webdav";
  mount.enableCurl = protocol != "plain";
  return fakeMounts.emplace_back(mount);
}

namespace {

const FakeMount* FindShare(const std::string& path) {
  for (const FakeMount& mount : fakeMounts) {
    if (path.starts_with(mount.info.base_uri)) return &mount;
  }
  return nullptr;
}

}  // namespace

bool vfs::FindBySharePath(const std::string& path, MountInfo* out) {
  const FakeMount* mount = FindShare(path);
  if (mount != nullptr) *out = mount->info;
  return mount != nullptr;
}

bool vfs::FindByFullPath(const std::string& path, MountInfo* out) {
  for (const FakeMount& mount : fakeMounts) {
    const std::string& folder = mount.info.mount_path;
    if (path != folder && !path.starts_with(folder + "/")) continue;
    *out = mount.info;
    return true;
  }
  return false;
}

bool TAVOVFS::Utils::GetProtocol(const char* path, std::string& protocol) {
  const FakeMount* mount = FindShare(path);
  if (mount != nullptr) protocol = mount->info.protocol;
  return mount != nullptr;
}

bool TAVOVFS::Utils::GetBaseURI(const char* path, std::string& uri, bool /*checked*/) {
  const FakeMount* mount = FindShare(path);
  if (mount != nullptr) uri = mount->info.base_uri;
  return mount != nullptr;
}

bool TAVOVFS::Protocol::GetProtocol(const char* protocol, Json::Value& description) {
  for (const FakeMount& mount : fakeMounts) {
    if (mount.info.protocol != protocol || mount.info.protocol == "odd") continue;
    description = Json::Value(Json::objectValue);
    description["enable_curl"] = mount.enableCurl ? "true" : "false";
    return true;
  }
  return false;
}

// Network file systems cannot be mounted by a test.
int TAVOFSIsInMountTable(const char* path) {
  const std::string text = path;
  if (text.starts_with("/cifs")) return core::kFsCifs;
  if (text.starts_with("/nfs")) return core::kFsNfs;
  return text.starts_with("/") ? core::kFsExt : core::kFsUnknown;
}
