#include "share_lookup.h"

#include <algorithm>

#include "support/path_info.h"

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

}  // namespace support

bool IsDirUserHome(const char* path, std::string* /*owner*/) {
  return path && support::ShareNameOf(path) == support::kHomeShare;
}
