#include "cloud/cloud.h"

#include "core/error.h"
#include "vfs/vfs.h"

namespace TAVOCloud {

bool Cloud::DownloadFile(Cloud* cloud, const std::string& remotePath, int fd, std::uint64_t size,
                         ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  if (cloud == nullptr || fd < 0) {
    VLIBCErrSetEx(core::kErrBadArgument, __FILE__, __LINE__);
    return false;
  }
  return cloud->Download(cloud->GetServerPathBySharePath(remotePath), fd, size, progress, cancel,
                         readSize);
}

bool Cloud::UploadFile(Cloud* cloud, const std::string& remotePath, int fd, std::uint64_t size,
                       ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  if (cloud == nullptr || fd < 0) {
    VLIBCErrSetEx(core::kErrBadArgument, __FILE__, __LINE__);
    return false;
  }
  return cloud->Upload(cloud->GetServerPathBySharePath(remotePath), fd, size, progress, cancel,
                       readSize);
}

// No transfer library is in use: no kind of connection exists yet.
void Cloud::InitCurlGlobal() {}
void Cloud::CleanupCurlGlobal() {}

std::string Cloud::GetServerPathBySharePath(const std::string& remotePath) const {
  if (!remotePath.empty() && remotePath[0] == '/') return remotePath;
  if (serverId_.empty() || remotePath.compare(0, serverId_.size(), serverId_) != 0) return {};
  vfs::MountInfo mount;
  const std::string base =
      vfs::FindBySharePath(serverId_, &mount) ? mount.remote_base : std::string("/");
  const std::string rest = remotePath.substr(serverId_.size());
  return base + (base.empty() || base.back() != '/' ? "/" : "") + rest;
}

// No mount of this kind is configured, so no two accounts can meet.
bool Dropbox::CopyFromRef(Cloud* /*dest*/, const std::string& /*sourceServerPath*/,
                          const std::string& /*destServerPath*/, Cloud* /*source*/) {
  VLIBCErrSetEx(core::kErrNotFound, __FILE__, __LINE__);
  return false;
}

// There is no mount of any kind.
Cloud* Utils::CreateCloudByURI(uid_t /*uid*/, const std::string& /*uri*/, int /*configMode*/) {
  VLIBCErrSetEx(core::kErrNotFound, __FILE__, __LINE__);
  return nullptr;
}

}  // namespace TAVOCloud
