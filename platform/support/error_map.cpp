#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "core/error.h"
#include "core/fs_type.h"
#include "support/errors.h"

namespace {

struct MapRow {
  int from;
  int to;
};

constexpr std::array kErrnoRows = {
    MapRow{EPERM, WEBFM_NO_PERMISSION},
    MapRow{EACCES, WEBFM_NO_PERMISSION},
    MapRow{ENOENT, WEBFM_NOT_FOUND},
    MapRow{EROFS, WEBFM_READ_ONLY},
    MapRow{ENAMETOOLONG, WEBFM_NAME_TOO_LONG},
    MapRow{ENOSPC, WEBFM_NO_SPACE},
    MapRow{EDQUOT, WEBFM_QUOTA_EXCEEDED},
    MapRow{EIO, WEBFM_IO_ERROR},
    MapRow{ENXIO, WEBFM_IO_ERROR},
    MapRow{EREMOTEIO, WEBFM_IO_ERROR},
    MapRow{ENOTDIR, WEBFM_NOT_A_FOLDER},
    MapRow{EISDIR, WEBFM_NOT_A_FILE},
    MapRow{EBUSY, WEBFM_BUSY},
    MapRow{ETXTBSY, WEBFM_BUSY},
    MapRow{ELOOP, WEBFM_TOO_MANY_LINKS},
    MapRow{EMLINK, WEBFM_TOO_MANY_LINKS},
    MapRow{EMFILE, WEBFM_TOO_MANY_LINKS},
    MapRow{ENFILE, WEBFM_TOO_MANY_LINKS},
    MapRow{ENOMEM, WEBFM_OUT_OF_MEMORY},
    MapRow{ECANCELED, WEBFM_CANCELLED},
    MapRow{EINTR, WEBFM_CANCELLED},
    MapRow{EEXIST, WEBFM_CONFLICT},
    MapRow{ENOTEMPTY, WEBFM_CONFLICT},
    MapRow{EFBIG, WEBFM_FILE_TOO_BIG},
    MapRow{EOVERFLOW, WEBFM_FILE_TOO_BIG},
    MapRow{EILSEQ, WEBFM_ILLEGAL_NAME},
    MapRow{EINVAL, WEBFM_BAD_PARAMETER},
    MapRow{EOPNOTSUPP, WEBFM_NOT_SUPPORTED},
    MapRow{ENOSYS, WEBFM_NOT_SUPPORTED},
    MapRow{EXDEV, WEBFM_NOT_SUPPORTED},
    MapRow{ENOTTY, WEBFM_NOT_SUPPORTED},
    MapRow{EHOSTDOWN, WEBFM_MOUNT_LOST},
    MapRow{EHOSTUNREACH, WEBFM_MOUNT_LOST},
    MapRow{ENETDOWN, WEBFM_MOUNT_LOST},
    MapRow{ENETUNREACH, WEBFM_MOUNT_LOST},
    MapRow{ETIMEDOUT, WEBFM_MOUNT_LOST},
    MapRow{ECONNRESET, WEBFM_MOUNT_LOST},
    MapRow{ECONNABORTED, WEBFM_MOUNT_LOST},
    MapRow{ESHUTDOWN, WEBFM_MOUNT_LOST},
    MapRow{ESTALE, WEBFM_MOUNT_LOST},
    // A user-space mount whose server process has died answers so.
    MapRow{ENOTCONN, WEBFM_MOUNT_GONE},
    MapRow{ENODEV, WEBFM_MOUNT_GONE},
    MapRow{ECONNREFUSED, WEBFM_REMOTE_REFUSED},
};

// Codes without a name of their own are those that copy errors are known by.
constexpr std::array kCoreRows = {
    MapRow{core::kErrNotFound, WEBFM_NOT_FOUND},
    MapRow{core::kErrBadArgument, WEBFM_BAD_PARAMETER},
    MapRow{core::kErrQuota, WEBFM_QUOTA_EXCEEDED},
    MapRow{core::kErrNoSpace, WEBFM_NO_SPACE},
    MapRow{core::kErrInputOutput, WEBFM_IO_ERROR},
    MapRow{0x8200, WEBFM_REMOTE_TOO_LARGE},
    MapRow{core::kErrFolderExpected, WEBFM_TYPE_CONFLICT},
    MapRow{core::kErrFileExpected, WEBFM_TYPE_CONFLICT},
    MapRow{core::kErrExists, WEBFM_CONFLICT},
    MapRow{core::kErrTooLarge, WEBFM_FILE_TOO_BIG},
    MapRow{0xA500, WEBFM_CONFLICT},
    MapRow{core::kErrIllegalName, WEBFM_ILLEGAL_NAME},
    MapRow{core::kErrNameTooLong, WEBFM_NAME_TOO_LONG},
    MapRow{core::kErrNoRight, WEBFM_NO_PERMISSION},
    MapRow{0xD900, WEBFM_NOT_SUPPORTED},
};

template <typename Rows>
int Lookup(const Rows& rows, int key, int otherwise) {
  const auto* row =
      std::find_if(rows.begin(), rows.end(), [&](const MapRow& r) { return r.from == key; });
  return row == rows.end() ? otherwise : row->to;
}

bool LiesOnGoneMount(const char* path) {
  return path && *path && TAVOFSIsInMountTable(path) == core::kFsCifs;
}

bool LiesOnReadOnlyMount(const char* path) {
  struct statvfs fs {};
  return path && *path && statvfs(path, &fs) == 0 && (fs.f_flag & ST_RDONLY);
}

// One core code stands for both reasons, and a read-only file system is not
// mended by asking for more rights.
int RefusalCode(int err, const char* destFolder) {
  if (err == EROFS) return WEBFM_READ_ONLY;
  if (err == EACCES || err == EPERM) return WEBFM_NO_PERMISSION;
  return LiesOnReadOnlyMount(destFolder) ? WEBFM_READ_ONLY : WEBFM_NO_PERMISSION;
}

int CoreCode(int coreError, int err, const char* destFolder) {
  switch (coreError) {
    case core::kErrNotPermitted:
      return RefusalCode(err, destFolder);
    case core::kErrHostDown:
      return LiesOnGoneMount(destFolder) ? WEBFM_MOUNT_GONE : WEBFM_MOUNT_LOST;
    case core::kErrNoSpace:
      return err == EDQUOT ? WEBFM_QUOTA_EXCEEDED : WEBFM_NO_SPACE;
    default: {
      const int code = Lookup(kCoreRows, coreError, WEBFM_OK);
      return code != WEBFM_OK ? code : WfmParseErrnoToError(err, destFolder, nullptr);
    }
  }
}

}  // namespace

int WfmParseErrnoToError(int err, const char* path, const char* path2) {
  const int saved = errno;
  int code = Lookup(kErrnoRows, err, WEBFM_FAILED);
  if (code == WEBFM_MOUNT_LOST && (LiesOnGoneMount(path) || LiesOnGoneMount(path2))) {
    code = WEBFM_MOUNT_GONE;
  }
  errno = saved;
  return code;
}

int WfmParseTavoErrToError(int coreError, const char* /*destParam*/, const char* destFolder) {
  const int saved = errno;
  const int code = CoreCode(coreError, saved, destFolder);
  errno = saved;
  return code;
}
