// Remote mounts without a network: these definitions take the place of the
// library's own in this program. "lone" is in no configuration.
#include "module_fixture.h"
#include "vfs/vfs.h"

namespace {

std::vector<vfs::MountInfo> Mounts() {
  std::vector<vfs::MountInfo> mounts(4);
  const std::pair<const char*, const char*> named[] = {
      {"sftp", "nas"}, {"sftp", "far"}, {"dropbox", "box"}, {"sftp", "lone"}};
  for (std::size_t i = 0; i < mounts.size(); ++i) {
    const auto& [protocol, name] = named[i];
    mounts[i].name = name;
    mounts[i].protocol = protocol;
    mounts[i].base_uri = std::string(protocol) + "://" + name + "/";
    mounts[i].mount_path = ModuleTest::root() / (std::string("mount-") + name);
    mounts[i].remote_base = "/srv";
    mounts[i].code_page = "ISO-8859-1";
    mounts[i].cloud = std::string(protocol) == "dropbox";
  }
  return mounts;
}

template <typename Test>
bool FindMount(Test holds, vfs::MountInfo* out) {
  for (const vfs::MountInfo& mount : Mounts()) {
    if (!holds(mount)) continue;
    *out = mount;
    return true;
  }
  return false;
}

}  // namespace

bool vfs::FindBySharePath(const std::string& path, MountInfo* out) {
  return FindMount([&](const MountInfo& mount) { return path.starts_with(mount.base_uri); }, out);
}

bool vfs::FindByFullPath(const std::string& path, MountInfo* out) {
  return FindMount(
      [&](const MountInfo& mount) { return (path + '/').starts_with(mount.mount_path + '/'); },
      out);
}
