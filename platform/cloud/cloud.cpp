#include "cloud/cloud.h"

#include <curl/curl.h>
#include <pwd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "core/config.h"
#include "core/error.h"
#include "core/user_list.h"
#include "dropbox.h"
#include "ftp_family.h"
#include "server_cloud.h"
#include "sftp.h"
#include "vfs/mounts.h"
#include "vfs/vfs.h"
#include "webdav.h"

namespace TAVOCloud {
namespace {

bool Refuse(int system, int core) {
  errno = system;
  VLIBCErrSetEx(core, __FILE__, __LINE__);
  return false;
}

bool IsFtpFamily(const std::string& protocol) { return protocol == "ftp" || protocol == "ftps"; }

bool IsWebDav(const std::string& protocol) { return protocol == "webdav" || protocol == "webdavs"; }

// Empty for an unknown user, whom only "*" lets in.
std::string NameOf(uid_t uid) {
  std::vector<char> buffer(65536);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
    return {};
  }
  return entry.pw_name;
}

}  // namespace

bool Cloud::DownloadFile(Cloud* cloud, const std::string& remotePath, int fd, std::uint64_t size,
                         ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  if (cloud == nullptr || fd < 0) {
    VLIBCErrSetEx(core::kErrBadArgument, __FILE__, __LINE__);
    return false;
  }
  const std::string path = cloud->GetServerPathBySharePath(remotePath);
  auto* server = dynamic_cast<ServerCloud*>(cloud);
  if (server != nullptr &&
      server->LeaveBehind({true, path, {}, size, progress, cancel}, fd, readSize)) {
    return true;
  }
  return cloud->Download(path, fd, size, progress, cancel, readSize);
}

bool Cloud::UploadFile(Cloud* cloud, const std::string& remotePath, int fd, std::uint64_t size,
                       ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  if (cloud == nullptr || fd < 0) {
    VLIBCErrSetEx(core::kErrBadArgument, __FILE__, __LINE__);
    return false;
  }
  const std::string path = cloud->GetServerPathBySharePath(remotePath);
  auto* server = dynamic_cast<ServerCloud*>(cloud);
  if (server != nullptr &&
      server->LeaveBehind({false, path, {}, size, progress, cancel}, fd, readSize)) {
    return true;
  }
  if (!cloud->Upload(path, fd, size, progress, cancel, readSize)) return false;
  vfs::AwaitUploaded(remotePath, size);
  return true;
}

// The first handle does it (curl_handle.cpp): most tasks need none, and it takes longer than
// to rename a file.
void Cloud::InitCurlGlobal() {}
void Cloud::CleanupCurlGlobal() { curl_global_cleanup(); }

std::string Cloud::GetServerPathBySharePath(const std::string& remotePath) const {
  if (!remotePath.empty() && remotePath[0] == '/') return remotePath;
  // The base folder itself may stand without its last slash.
  const std::string path = remotePath + (remotePath.size() + 1 == serverId_.size() ? "/" : "");
  if (serverId_.empty() || !path.starts_with(serverId_)) return {};
  vfs::MountInfo mount;
  std::string base = vfs::FindBySharePath(serverId_, &mount) ? mount.remote_base : std::string("/");
  const std::string rest = path.substr(serverId_.size());
  if (rest.empty() && !base.empty()) return base;
  return base + (base.empty() || base.back() != '/' ? "/" : "") + rest;
}

bool Dropbox::CopyFromRef(Cloud* dest, const std::string& sourceServerPath,
                          const std::string& destServerPath, Cloud* source) {
  auto* to = dynamic_cast<DropboxCloud*>(dest);
  auto* from = dynamic_cast<DropboxCloud*>(source);
  if (to == nullptr || from == nullptr) return Refuse(EINVAL, core::kErrBadArgument);
  return to->CopyFromAccount(from, sourceServerPath, destServerPath);
}

Cloud* Utils::CreateCloudByURI(uid_t uid, const std::string& uri, int /*configMode*/) {
  vfs::MountInfo mount;
  if (!vfs::FindBySharePath(uri, &mount)) return Refuse(ENOENT, core::kErrNotFound), nullptr;
  if (!core::IsUserListed(NameOf(uid), mount.users)) {
    return Refuse(EACCES, core::kErrNotPermitted), nullptr;
  }
  for (const core::RemoteConfig& remote : core::CurrentConfig().remotes) {
    if (remote.name == mount.name && IsFtpFamily(remote.protocol)) {
      return std::make_unique<FtpFamily>(remote, mount.base_uri).release();
    }
    if (remote.name == mount.name && remote.protocol == "sftp") {
      return std::make_unique<Sftp>(remote, mount.base_uri).release();
    }
    if (remote.name == mount.name && IsWebDav(remote.protocol)) {
      return std::make_unique<WebDav>(remote, mount.base_uri).release();
    }
    if (remote.name == mount.name && remote.protocol == "dropbox") {
      return std::make_unique<DropboxCloud>(remote, mount.base_uri).release();
    }
  }
  return Refuse(EOPNOTSUPP, core::kErrSeeErrno), nullptr;
}

}  // namespace TAVOCloud
