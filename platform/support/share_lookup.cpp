#include "share_lookup.h"

#include <algorithm>

#include "support/errors.h"
#include "support/path_info.h"
#include "vfs/mounts.h"

namespace support {

std::string_view ShareNameOf(std::string_view path) {
  if (!path.starts_with('/')) return path.find('/') == std::string_view::npos ? path : "";
  path.remove_prefix(1);
  return path.substr(0, path.find('/'));
}

const core::ShareConfig* FindShare(std::string_view name) {
  const auto& shares = core::CurrentConfig().shares;
  const auto it = std::find_if(shares.begin(), shares.end(),
                               [&](const core::ShareConfig& share) { return share.name == name; });
  return it == shares.end() ? nullptr : &*it;
}

const core::RemoteConfig* FindRemote(std::string_view name) {
  const auto& remotes = core::CurrentConfig().remotes;
  const auto it =
      std::find_if(remotes.begin(), remotes.end(),
                   [&](const core::RemoteConfig& remote) { return remote.name == name; });
  return it == remotes.end() ? nullptr : &*it;
}

int CodeOfMissingMount(const std::string& path) {
  switch (vfs::TroubleOf(path).kind) {
    case vfs::TroubleKind::kNone:
      return WEBFM_NO_SHARE;
    case vfs::TroubleKind::kNotResolved:
    case vfs::TroubleKind::kRefused:
    case vfs::TroubleKind::kTimedOut:
    case vfs::TroubleKind::kUnreachable:
      return WEBFM_REMOTE_UNREACHABLE;
    case vfs::TroubleKind::kLoginFailed:
    case vfs::TroubleKind::kHostKey:
    case vfs::TroubleKind::kCertificate:
      return WEBFM_REMOTE_REFUSED;
    case vfs::TroubleKind::kNoFolder:
      return WEBFM_NOT_FOUND;
    case vfs::TroubleKind::kNotAvailable:
      return WEBFM_NOT_SUPPORTED;
    case vfs::TroubleKind::kOther:
      break;
  }
  return WEBFM_REMOTE_IO;
}

}  // namespace support

bool IsDirUserHome(const char* path, std::string* /*owner*/) {
  return path && support::ShareNameOf(path) == support::kHomeShare;
}
