// File-system types in the system's own small numbering.
#pragma once

namespace core {

enum FsType : int {
  kFsUnknown = -1,
  kFsOther = 0,
  kFsExt = 1,  // ext2, ext3, ext4
  kFsXfs = 2,
  kFsBtrfs = 3,
  kFsTmpfs = 4,
  kFsZfs = 5,
  kFsF2fs = 6,
  kFsOverlay = 7,
  kFsFuse = 8,  // remote: user-space mounts
  kFsNtfs = 9,
  kFsIso = 10,
  kFsNfs = 11,   // remote
  kFsFat = 12,   // FAT and exFAT
  kFsCeph = 13,  // remote
  kFsCifs = 14,  // remote; losing it means that the mount itself is gone
};

}  // namespace core

// Type of the file system that holds `path` (links followed), kFsUnknown when
// it cannot be asked. `flags` is reserved and 0.
int TAVOGetFSType(const char* path, int flags);

// Type of the mounted file system that holds `path`, as the mount table has it;
// works for a path whose mount no longer answers, and for a path whose last
// components do not exist. -1 when no mount holds it (a relative path).
int TAVOFSIsInMountTable(const char* path);

// 1 for a file system reached over a network, else 0.
int TAVOFSIsRemoteFS(int type);
