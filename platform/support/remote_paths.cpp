#include "support/path_info.h"
#include "vfs/vfs.h"

bool WfmLibIsVFSSharePath(const char* sharePath) {
  vfs::MountInfo mount;
  return sharePath && vfs::FindBySharePath(sharePath, &mount);
}

bool WfmLibIsVFSFullPath(const char* realPath) {
  vfs::MountInfo mount;
  return realPath && vfs::FindByFullPath(realPath, &mount);
}

bool WfmLibIsCloudVFSFullPath(const char* realPath) {
  vfs::MountInfo mount;
  return realPath && vfs::FindByFullPath(realPath, &mount) && mount.cloud;
}

std::string WfmLibGetVFSCodePage(const char* sharePath, uid_t /*uid*/) {
  vfs::MountInfo mount;
  return sharePath && vfs::FindBySharePath(sharePath, &mount) ? mount.code_page : std::string();
}

bool WfmLibGetVFSCodePageAndMaxConnection(const char* sharePath, uid_t /*uid*/,
                                          std::string& codePage, int& maxConnection) {
  vfs::MountInfo mount;
  if (!sharePath || !vfs::FindBySharePath(sharePath, &mount)) return false;
  codePage = mount.code_page;
  maxConnection = mount.max_connections;
  return true;
}

std::string WfmLibGetVFSServerIDFromURI(const char* sharePath) {
  vfs::MountInfo mount;
  return sharePath && vfs::FindBySharePath(sharePath, &mount) ? mount.base_uri : std::string();
}
