#include "core/fs_type.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include <cerrno>
#include <string_view>

#include "core/error.h"
#include "core/mount_table.h"

namespace core {
namespace {

int TypeFromMagic(unsigned long magic) {
  switch (magic) {
    case 0xEF53:  // shared by ext2, ext3 and ext4
      return kFsExt;
    case 0x58465342:
      return kFsXfs;
    case BTRFS_SUPER_MAGIC:
      return kFsBtrfs;
    case TMPFS_MAGIC:
    case RAMFS_MAGIC:
      return kFsTmpfs;
    case 0x2FC12FC1:
      return kFsZfs;
    case F2FS_SUPER_MAGIC:
      return kFsF2fs;
    case OVERLAYFS_SUPER_MAGIC:
      return kFsOverlay;
    case FUSE_SUPER_MAGIC:
      return kFsFuse;
    case 0x5346544E:
    case 0x7366746E:
      return kFsNtfs;
    case ISOFS_SUPER_MAGIC:
    case UDF_SUPER_MAGIC:
      return kFsIso;
    case NFS_SUPER_MAGIC:
      return kFsNfs;
    case MSDOS_SUPER_MAGIC:
    case 0x2011BAB0:  // exFAT
      return kFsFat;
    case CEPH_SUPER_MAGIC:
      return kFsCeph;
    case SMB_SUPER_MAGIC:
    case CIFS_SUPER_MAGIC:
    case SMB2_SUPER_MAGIC:
      return kFsCifs;
    default:
      return kFsOther;
  }
}

struct NamedType {
  std::string_view name;
  int type;
};

constexpr NamedType kNamedTypes[] = {
    {"ext2", kFsExt},    {"ext3", kFsExt},    {"ext4", kFsExt},        {"xfs", kFsXfs},
    {"btrfs", kFsBtrfs}, {"tmpfs", kFsTmpfs}, {"ramfs", kFsTmpfs},     {"devtmpfs", kFsTmpfs},
    {"zfs", kFsZfs},     {"f2fs", kFsF2fs},   {"overlay", kFsOverlay}, {"fuse", kFsFuse},
    {"ntfs", kFsNtfs},   {"ntfs3", kFsNtfs},  {"iso9660", kFsIso},     {"udf", kFsIso},
    {"nfs", kFsNfs},     {"nfs4", kFsNfs},    {"vfat", kFsFat},        {"msdos", kFsFat},
    {"exfat", kFsFat},   {"ceph", kFsCeph},   {"cifs", kFsCifs},       {"smb3", kFsCifs},
    {"smbfs", kFsCifs},
};

int TypeFromName(std::string_view name) {
  if (name.starts_with("fuse.")) return kFsFuse;
  for (const NamedType& row : kNamedTypes) {
    if (row.name == name) return row.type;
  }
  return kFsOther;  // "fuseblk" too: a user-space driver on a local disk
}

// Type of the mount that holds `path`, by the mount's id.
int TypeFromMountId(const char* path) {
  struct statx sx = {};
  if (statx(AT_FDCWD, path, 0, STATX_MNT_ID, &sx) != 0 || (sx.stx_mask & STATX_MNT_ID) == 0) {
    return kFsUnknown;
  }
  for (const MountEntry& entry : ReadMountTable()) {
    if (entry.id == sx.stx_mnt_id) return TypeFromName(entry.type);
  }
  return kFsUnknown;
}

}  // namespace
}  // namespace core

int TAVOGetFSType(const char* path, int /*flags*/) {
  struct statfs fs;
  if (path == nullptr) errno = EINVAL;
  if (path == nullptr || statfs(path, &fs) != 0) {
    VLIBCErrSetEx(core::ErrorFromErrno(errno), __FILE__, __LINE__);
    return core::kFsUnknown;
  }
  const int type = core::TypeFromMagic(static_cast<unsigned long>(fs.f_type));
  // Drivers in user space share one magic, whether disk or network is behind.
  if (type == core::kFsFuse && core::TypeFromMountId(path) == core::kFsOther) return core::kFsOther;
  return type;
}

int TAVOFSIsInMountTable(const char* path) {
  if (path == nullptr || *path != '/') return -1;
  const auto table = core::ReadMountTable();
  const core::MountEntry* entry = core::MountOf(table, path);
  return entry == nullptr ? -1 : core::TypeFromName(entry->type);
}

int TAVOFSIsRemoteFS(int type) {
  switch (type) {
    case core::kFsFuse:
    case core::kFsNfs:
    case core::kFsCeph:
    case core::kFsCifs:
      return 1;
    default:
      return 0;
  }
}
