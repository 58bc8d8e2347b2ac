// Mode, owner, times, extended attributes and ACLs of what was copied.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

#include "fileop/copy.h"
#include "folder.h"

namespace fileop {

// Whose a copy shall be, and what else it keeps.
struct MetadataRules {
  bool keep = true;         // mode, times, attributes, ACLs
  bool keep_owner = false;  // a move
  bool as_root = false;
  uid_t user = 0;  // as root: owner of a copy
  gid_t group = 0;
  mode_t mask = 022;  // the process's umask
};

// The process's umask, read without changing it for a moment.
mode_t ReadUmask();

MetadataRules RulesFor(const TAVOCOPYOPTIONS& options, mode_t mask);

// The permission bits with which to create the copy of `st`.
mode_t CreationMode(const MetadataRules& rules, const struct stat& st);

// Makes the new file or folder behind `dst` what `src`, whose state is `st`, is.
// Calls that would change nothing are left out. What the destination's file
// system has no room for in principle is left out silently. -1 with the last
// error set.
[[nodiscard]] int ApplyMetadata(const MetadataRules& rules, int src, const struct stat& st,
                                TargetFolder& folder, int dst);

// Whether nothing but its times is to be set for the copy of `st` in a remote folder whose owner
// is known.
bool NeedsTimesOnly(const MetadataRules& rules, const struct stat& st, const TargetFolder& folder);

// The same for the file `name` of a remote mount that was sent to its server and shows as
// `there`, by as few questions as there can be: 1, and nothing done, when more than its times
// is to be set. Such a server keeps no extended attributes. `folder`'s owner is known then.
[[nodiscard]] int ApplyTimesOnly(const MetadataRules& rules, const struct stat& st,
                                 TargetFolder& folder, const std::string& name,
                                 const struct stat& there);

// An entry with attributes: what a descriptor stands for or, with a name, a link or
// special file in the folder behind the descriptor.
struct Attributed {
  int fd = -1;
  std::string name{};
};

// The same for a link or special file, by name.
[[nodiscard]] int ApplyNodeMetadata(const MetadataRules& rules, const Attributed& src,
                                    const struct stat& st, const TargetFolder& folder,
                                    const std::string& name);

// Copies extended attributes and ACLs. `clear_acl`: the destination may have
// inherited an ACL that the source does not have.
[[nodiscard]] int CopyAttributes(const Attributed& src, const Attributed& dst, bool clear_acl);

}  // namespace fileop
