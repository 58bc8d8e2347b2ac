// The two folders between which an entry travels.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>
#include <string>

#include "core/unique_fd.h"
#include "failure.h"

namespace fileop {

// Names a file or folder for as long as it lives.
struct Identity {
  dev_t dev = 0;
  ino_t ino = 0;

  bool operator==(const Identity&) const = default;
};

inline Identity IdentityOf(const struct stat& st) { return {st.st_dev, st.st_ino}; }

using Clock = std::chrono::steady_clock;

// A folder that entries are taken from.
struct SourceFolder {
  core::UniqueFd fd;
  std::string path;  // where the caller found it
  Identity id;
  Clock::time_point seen;      // when the path was last seen to lead here
  bool no_companions = false;  // as far as was seen since
  int fs_type = -1;
  // What a removal from it would meet: 0, or the errno.
  int removal_error = 0;
  bool sticky = false;  // only owners may remove
  bool remote = false;  // on a remote mount
};

// A folder that entries are put into.
struct TargetFolder {
  core::UniqueFd fd;
  std::string path;  // where it stands now
  Identity id;
  Clock::time_point seen;  // when the path was last seen to lead here
  int fs_type = -1;
  bool remote = false;       // on a remote mount
  bool unseen = false;       // under a temporary name: nobody takes its files for final
  bool default_acl = false;  // new entries inherit an ACL
  // Who owns what this process makes here, once one was made and looked at.
  bool owner_known = false;
  uid_t owner = 0;
  gid_t group = 0;
};

// A path taken apart into its parent, opened, and its last component.
struct OpenedParent {
  core::UniqueFd dir;
  std::string dir_path;
  std::string name;
};

// Opens the parent of an absolute canonical path; no component may be a
// symbolic link. Negative with the last error set on failure.
[[nodiscard]] int OpenParent(const char* path, Side side, OpenedParent* out);

// Opens the folder at `path` (relative to `base`, or absolute) without following
// any symbolic link; paths of any length. -1 with errno.
[[nodiscard]] core::UniqueFd OpenFolderNoLinks(int base, const std::string& path, int flags);

// Fills what is known about an opened folder. `removes`: entries will be removed.
[[nodiscard]] int DescribeSource(bool removes, SourceFolder* folder);
[[nodiscard]] int DescribeTarget(TargetFolder* folder);

// Type of the file system behind a descriptor, in the core library's numbering.
int FsTypeOf(int fd);

}  // namespace fileop
