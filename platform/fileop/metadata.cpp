#include "metadata.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "core/fs_type.h"

namespace fileop {
namespace {

constexpr mode_t kPermissions = 07777;

struct Owner {
  uid_t user;
  gid_t group;

  bool operator==(const Owner&) const = default;
};

Owner WantedOwner(const MetadataRules& rules, const struct stat& st) {
  if (rules.keep_owner) return {st.st_uid, st.st_gid};
  if (rules.as_root) return {rules.user, rules.group};
  return {::geteuid(), static_cast<gid_t>(-1)};
}

// Who owns what was just made behind `fd`.
int MadeOwner(TargetFolder& folder, int fd, Owner* made) {
  if (!folder.owner_known) {
    struct stat st;
    if (::fstat(fd, &st) != 0) return Fail(errno, Side::kDestination);
    folder.owner = st.st_uid;
    folder.group = st.st_gid;
    folder.owner_known = true;
  }
  *made = {folder.owner, folder.group};
  return 0;
}

bool KeepsNoOwners(const TargetFolder& folder) {
  return folder.fs_type == core::kFsFat || folder.fs_type == core::kFsNtfs;
}

// Bits that would give the wrong owner's rights away.
constexpr mode_t kSetIds = S_ISUID | S_ISGID;

// Gives `dst` its owner. *mode loses the set-id bits when that is not possible.
int ApplyOwner(const MetadataRules& rules, const struct stat& st, TargetFolder& folder, int dst,
               mode_t* mode) {
  Owner made{};
  if (MadeOwner(folder, dst, &made) < 0) return -1;
  Owner wanted = WantedOwner(rules, st);
  if (wanted.group == static_cast<gid_t>(-1)) wanted.group = made.group;
  if (!(wanted == made) && ::fchown(dst, wanted.user, wanted.group) != 0) {
    const bool expected = errno == EPERM || errno == ENOTSUP || errno == ENOSYS;
    if (!expected || (rules.as_root && !KeepsNoOwners(folder) && errno == EPERM)) {
      return Fail(errno, Side::kDestination);
    }
    // The group alone may still be one of the user's.
    if (wanted.group == made.group || ::fchown(dst, static_cast<uid_t>(-1), wanted.group) != 0) {
      wanted.group = made.group;
    }
    wanted.user = made.user;
  }
  const bool same_user = wanted.user == st.st_uid;
  const bool same_group = wanted.group == st.st_gid;
  if (!same_user) *mode &= ~static_cast<mode_t>(S_ISUID);
  if (!same_group && !S_ISDIR(st.st_mode)) *mode &= ~static_cast<mode_t>(S_ISGID);
  return 0;
}

int ApplyMode(const TargetFolder& folder, int dst, mode_t mode) {
  if (::fchmod(dst, mode) == 0 || errno == ENOTSUP || KeepsNoOwners(folder)) return 0;
  return Fail(errno, Side::kDestination);
}

}  // namespace

// umask can only be read by setting it, which other threads would notice.
mode_t ReadUmask() {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> status(
      std::fopen("/proc/self/status", "re"), std::fclose);
  char line[256];
  while (status != nullptr && std::fgets(line, sizeof line, status.get()) != nullptr) {
    unsigned mask = 0;
    if (std::sscanf(line, "Umask: %o", &mask) == 1) return mask;
  }
  return 022;
}

MetadataRules RulesFor(const TAVOCOPYOPTIONS& options, mode_t mask) {
  MetadataRules rules;
  rules.keep = options.keepMetadata != 0;
  rules.keep_owner = options.moveFlag != 0;
  rules.as_root = ::geteuid() == 0;
  rules.user = static_cast<uid_t>(options.userId);
  rules.group = static_cast<gid_t>(options.groupId);
  rules.mask = mask;
  return rules;
}

mode_t CreationMode(const MetadataRules& rules, const struct stat& st) {
  if (!rules.keep) return S_ISDIR(st.st_mode) ? 0777 : 0666;
  return st.st_mode & 0777;
}

int ApplyMetadata(const MetadataRules& rules, int src, const struct stat& st, TargetFolder& folder,
                  int dst) {
  const bool is_folder = S_ISDIR(st.st_mode);
  mode_t mode = rules.keep ? st.st_mode & kPermissions : CreationMode(rules, st) & ~rules.mask;
  if (ApplyOwner(rules, st, folder, dst, &mode) < 0) return -1;
  // A source that was streamed from its server is not open, and has no attributes there.
  if (rules.keep && src >= 0 && CopyAttributes({src}, {dst}, folder.default_acl) < 0) return -1;
  // A folder was made with other permissions than it shall have.
  const mode_t made =
      is_folder || folder.default_acl ? kPermissions + 1 : CreationMode(rules, st) & ~rules.mask;
  if (mode != made && ApplyMode(folder, dst, mode) < 0) return -1;
  if (!rules.keep) return 0;
  const timespec times[2] = {st.st_atim, st.st_mtim};
  if (::futimens(dst, times) != 0) return Fail(errno, Side::kDestination);
  return 0;
}

bool NeedsTimesOnly(const MetadataRules& rules, const struct stat& st, const TargetFolder& folder) {
  Owner wanted = WantedOwner(rules, st);
  if (wanted.group == static_cast<gid_t>(-1)) wanted.group = folder.group;
  const mode_t mode = st.st_mode & kPermissions;
  return rules.keep && wanted == Owner{folder.owner, folder.group} &&
         mode == (CreationMode(rules, st) & ~rules.mask) && !folder.default_acl;
}

int ApplyTimesOnly(const MetadataRules& rules, const struct stat& st, TargetFolder& folder,
                   const std::string& name, const struct stat& there) {
  folder.owner = there.st_uid;
  folder.group = there.st_gid;
  folder.owner_known = true;
  if (!NeedsTimesOnly(rules, st, folder)) return 1;
  const timespec times[2] = {st.st_atim, st.st_mtim};
  if (::utimensat(folder.fd.get(), name.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0) return 0;
  return Fail(errno, Side::kDestination);
}

int ApplyNodeMetadata(const MetadataRules& rules, const Attributed& src, const struct stat& st,
                      const TargetFolder& folder, const std::string& made) {
  const int dir = folder.fd.get();
  const char* name = made.c_str();
  if (rules.as_root || rules.keep_owner) {
    const Owner wanted = WantedOwner(rules, st);
    if (::fchownat(dir, name, wanted.user, wanted.group, AT_SYMLINK_NOFOLLOW) != 0 &&
        (rules.as_root || errno != EPERM) && errno != ENOTSUP && !KeepsNoOwners(folder)) {
      return Fail(errno, Side::kDestination);
    }
  }
  if (!rules.keep) return 0;
  const bool inherits = folder.default_acl && !S_ISLNK(st.st_mode);
  if (CopyAttributes(src, {dir, made}, inherits) < 0) return -1;
  if (!S_ISLNK(st.st_mode) &&
      ::fchmodat(dir, name, st.st_mode & (kPermissions & ~kSetIds), AT_SYMLINK_NOFOLLOW) != 0) {
    return Fail(errno, Side::kDestination);
  }
  const timespec times[2] = {st.st_atim, st.st_mtim};
  if (::utimensat(dir, name, times, AT_SYMLINK_NOFOLLOW) != 0) {
    return Fail(errno, Side::kDestination);
  }
  return 0;
}

}  // namespace fileop
