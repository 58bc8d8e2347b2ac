#include "core/file.h"

#include <cerrno>

#include "core/error.h"

int VLIBCFileExist(const char* path) {
  struct stat st;
  return path != nullptr && lstat(path, &st) == 0 ? 1 : 0;
}

int VLIBCFileLStat(const char* path, int flags, TAVOSTAT* out) {
  *out = {};
  struct stat st;
  if (path == nullptr) errno = EINVAL;
  if (path == nullptr || lstat(path, &st) != 0) {
    VLIBCErrSetEx(core::ErrorFromErrno(errno), __FILE__, __LINE__);
    return -1;
  }
  if ((flags & kStatBasic) != 0) {
    out->st = st;
    out->st.st_uid = 0;
    out->st.st_gid = 0;
  }
  if ((flags & kStatOwner) != 0) {
    out->st.st_uid = st.st_uid;
    out->st.st_gid = st.st_gid;
  }
  return 0;
}
