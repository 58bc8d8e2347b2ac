#include "support/path_info.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "core/config.h"
#include "core/utf8.h"
#include "path_syntax.h"
#include "real_path.h"
#include "share_lookup.h"
#include "support/errors.h"
#include "support/text.h"
#include "user_record.h"
#include "utf8.h"
#include "vfs/vfs.h"

namespace {

using support::IsUtf8Name;

// Where the paths of a share begin.
struct Area {
  std::string root;
  std::string share;
  std::string codePage;
  std::string rest;  // below the root, without slashes around it
  bool remote = false;
};

int FindRemoteArea(const std::string& path, Area* area) {
  vfs::MountInfo mount;
  if (!vfs::FindBySharePath(path, &mount)) return support::CodeOfMissingMount(path);
  std::string rest = path.substr(std::min(path.size(), mount.base_uri.size()));
  *area = {mount.mount_path, mount.base_uri, mount.code_page, std::move(rest), true};
  return WEBFM_OK;
}

int FindLocalArea(const char* userName, const std::string& path, Area* area) {
  const std::string_view name = support::ShareNameOf(path);
  std::string rest = path.substr(std::min(path.size(), name.size() + 2));
  if (name == support::kHomeShare) {
    const support::UserRecord user = support::FindUser(userName);
    if (!user) return WEBFM_UNKNOWN_USER;
    *area = {user->home, std::string(name), "UTF-8", std::move(rest), false};
    return WEBFM_OK;
  }
  const core::ShareConfig* share = support::FindShare(name);
  if (!share) return WEBFM_NO_SHARE;
  *area = {share->path, share->name, share->code_page, std::move(rest), false};
  return WEBFM_OK;
}

bool IsRemotePath(const std::string& path) {
  const std::size_t scheme = path.find("://");
  return scheme != std::string::npos && scheme > 0 && scheme < path.find('/');
}

// The rules that hold before any share is known.
int CheckSyntax(const std::string& path) {
  if (path.empty()) return WEBFM_ILLEGAL_NAME;
  if (path.size() > support::kMaxPath) return WEBFM_NAME_TOO_LONG;
  const std::size_t start = IsRemotePath(path) ? path.find("://") + 3 : 1;
  if (start == 1 && path[0] != '/') return WEBFM_ILLEGAL_NAME;
  std::string_view components = std::string_view(path).substr(start);
  if (components.ends_with('/')) components.remove_suffix(1);
  if (components.empty()) return WEBFM_ILLEGAL_NAME;
  std::vector<std::string_view> names;
  return support::SplitPath(components, &names);
}

// Users write UTF-8; where names have another character set they lie on disk in
// that one. Bytes that are no UTF-8 are such names already.
int ToNamesOnDisk(const Area& area, std::string* rest) {
  const bool valid = core::IsUtf8(area.rest);
  *rest = area.rest;
  if (IsUtf8Name(area.codePage)) return valid ? WEBFM_OK : WEBFM_ILLEGAL_NAME;
  if (!valid) return WEBFM_OK;
  return WfmLibConv(*rest, area.rest, "UTF-8", area.codePage) ? WEBFM_OK : WEBFM_ILLEGAL_NAME;
}

int Resolve(const Area& area, PathInfo* info) {
  std::string rest;
  int code = ToNamesOnDisk(area, &rest);
  if (code != WEBFM_OK) return code;
  std::string root;
  code = support::ResolveBelow(area.root, rest, &root, &info->realPath);
  if (code != WEBFM_OK) return code;
  if (info->realPath.size() > support::kMaxPath) return WEBFM_NAME_TOO_LONG;
  info->share = area.share;
  info->codePage = area.codePage;
  info->volume = support::MountPointOf(info->realPath);
  if (area.remote) {
    // The base URI ends with the slash that the rest begins with.
    info->remoteBase = area.share.substr(0, area.share.size() - 1);
    info->remoteBase.append(info->realPath, root.size());
    info->mountUri = area.share;
  }
  return WEBFM_OK;
}

int Create(const char* userName, const std::string& path, PathInfo* info) {
  int code = CheckSyntax(path);
  if (code != WEBFM_OK) return code;
  const bool remote = IsRemotePath(path);
  info->sharePath = path;
  Area area;
  code = remote ? FindRemoteArea(path, &area) : FindLocalArea(userName, path, &area);
  if (code != WEBFM_OK) return code;
  // One slash at the end says "folder" and is no part of the name.
  if (area.rest.ends_with('/')) area.rest.pop_back();
  if (remote && area.rest.empty()) {
    info->sharePath = area.share;
  } else if (info->sharePath.ends_with('/')) {
    info->sharePath.pop_back();
  }
  return Resolve(area, info);
}

}  // namespace

bool PathInfoFactory::create(const char* userName, const std::string& path, PathInfo& out) {
  PathInfo info;
  const int code = Create(userName, path, &info);
  if (code != WEBFM_OK) {
    support::SetErr(code);
    return false;
  }
  out = std::move(info);
  return true;
}
