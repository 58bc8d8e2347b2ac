// Paths as users name them, and where they lie.
#pragma once

#include <sys/types.h>

#include <string>

// A resolved path.
struct PathInfo {
  std::string sharePath;  // as the user names it: "/SHARE/rest", "/home/rest", "sftp://NAME/rest"
  // On a remote mount: base URI of the mount, and the path below it with every
  // link followed, in bytes as they stand on the server. Without a slash at its end,
  // so that "/NAME" can be put behind it.
  std::string remoteBase;
  std::string realPath;  // absolute and canonical but for its last component
  // Share name without slashes ("home" for the home area), or a mount's base URI.
  std::string share;
  std::string volume;    // mount point of the file system that holds it
  std::string mountUri;  // base URI of the remote mount
  std::string codePage;  // character set of names there
};

class PathInfoFactory {
 public:
  // Resolves `path` for `userName`. The parent must exist and, links followed,
  // lie inside the share; the last component is taken as it is and need not
  // exist. False with WfmLibGetErr set: bad syntax (WEBFM_ILLEGAL_NAME), no such
  // share (WEBFM_NO_SHARE), a missing parent (WEBFM_NOT_FOUND), a way out of
  // the share (WEBFM_NO_PERMISSION).
  static bool create(const char* userName, const std::string& path, PathInfo& out);
};

// True for the user's home area: "/home", "/home/rest" or the share part
// "home". `owner`, when given, receives nothing yet and is reserved.
bool IsDirUserHome(const char* path, std::string* owner);

// Checks an absolute real path: components of at most 255 bytes and 4096 bytes
// in all, none of them "." or "..", no control characters that the protocol of a
// remote mount cannot hold, valid UTF-8 where the share's names are UTF-8.
// 0 when acceptable; otherwise non-zero and WfmLibGetErr tells why. The unnamed
// arguments select checks that are always on.
int WfmCheckPath(const char* path, bool, int flags, const char*, bool, bool isVfs, void*);

// Remote mounts (all false or empty without one); `uid` is not used.
bool WfmLibIsVFSSharePath(const char* sharePath);
bool WfmLibIsVFSFullPath(const char* realPath);
bool WfmLibIsCloudVFSFullPath(const char* realPath);
std::string WfmLibGetVFSCodePage(const char* sharePath, uid_t uid);
// True when the mount is known.
bool WfmLibGetVFSCodePageAndMaxConnection(const char* sharePath, uid_t uid, std::string& codePage,
                                          int& maxConnection);
std::string WfmLibGetVFSServerIDFromURI(const char* sharePath);
