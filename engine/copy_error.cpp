// From the reason of a failed copy to the code that clients see.
#include <cerrno>
#include <cstring>
#include <optional>

#include "core/error.h"
#include "core/fs_type.h"
#include "support/errors.h"
#include "support/path_info.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"

namespace Fennox {
namespace {

// Codes without a name in the core library.
constexpr int kCoreRemoteTooLarge = 0x8200;
constexpr int kCoreConflict = 0xA500;
constexpr int kCoreSingleConnection = 0xD900;
constexpr int kCoreUnreadable = 0x0600;

// The failed operation; both error values as it left them.
struct Failure {
  int core;
  int systemError;
  const char* srcPath;
  const char* destPath;
  const char* destParam;
  const char* destFolder;
};

// Conflicts and refusals are the user's own doing: nothing for the log.
std::optional<int> CodeWithoutLogLine(int core) {
  switch (core) {
    case core::kErrFileExpected:
    case core::kErrFolderExpected:
      return WEBFM_TYPE_CONFLICT;
    case core::kErrExists:
      return WEBFM_CONFLICT;
    case core::kErrNoRight:
      return WEBFM_NO_PERMISSION;
    default:
      return std::nullopt;
  }
}

bool EitherIsRemote(const Failure& failure) {
  return WfmLibIsVFSFullPath(failure.destPath) || WfmLibIsVFSFullPath(failure.srcPath);
}

bool EitherIsCloud(const Failure& failure) {
  return WfmLibIsCloudVFSFullPath(failure.srcPath) || WfmLibIsCloudVFSFullPath(failure.destPath);
}

int LostMountCode(int fsType) {
  return fsType == core::kFsCifs ? WEBFM_MOUNT_GONE : WEBFM_MOUNT_LOST;
}

// For errors that a lost mount also causes.
int CodeByMount(const Failure& failure) {
  const int fsType = TAVOFSIsInMountTable(failure.destFolder);
  if (fsType != core::kFsUnknown && TAVOFSIsRemoteFS(fsType) == 1) return LostMountCode(fsType);
  if (EitherIsCloud(failure) && failure.systemError == ECONNREFUSED) return WEBFM_REMOTE_REFUSED;
  return WEBFM_NOT_SUPPORTED;
}

int CodeByErrno(const Failure& failure) {
  if (failure.systemError == EOPNOTSUPP) return WEBFM_NOT_SUPPORTED;
  if (failure.systemError == EILSEQ || failure.core == core::kErrIllegalName) {
    return WfmLibIsCloudVFSFullPath(failure.destPath) ? WEBFM_REMOTE_BAD_NAME : WEBFM_ILLEGAL_NAME;
  }
  errno = failure.systemError;
  return WfmParseTavoErrToError(failure.core, failure.destParam, failure.destFolder);
}

int CodeByCoreError(const Failure& failure) {
  switch (failure.core) {
    case kCoreRemoteTooLarge:
      return WEBFM_REMOTE_TOO_LARGE;
    case core::kErrTooLarge:
      return WfmLibIsCloudVFSFullPath(failure.destPath) ? WEBFM_REMOTE_TOO_LARGE
                                                        : WEBFM_FILE_TOO_BIG;
    case kCoreConflict:
      return WEBFM_CONFLICT;
    case kCoreSingleConnection:
      return WEBFM_NOT_SUPPORTED;
    case core::kErrQuota:
      return WEBFM_QUOTA_EXCEEDED;
    case core::kErrInputOutput:
      return EitherIsRemote(failure) ? WEBFM_REMOTE_IO : CodeByMount(failure);
    case core::kErrHostDown:
      return EitherIsRemote(failure) ? WEBFM_REMOTE_UNREACHABLE
                                     : LostMountCode(TAVOFSIsInMountTable(failure.destFolder));
    case kCoreUnreadable:
    case core::kErrNotFound:
    case core::kErrCannotOpen:
      return CodeByMount(failure);
    default:
      return CodeByErrno(failure);
  }
}

}  // namespace

int MVCPParseCopyError(const char* srcPath, const char* destPath, const char* destParam,
                       const char* destFolder) {
  const Failure failure{VLIBCErrGet(), errno, srcPath, destPath, destParam, destFolder};
  if (const auto code = CodeWithoutLogLine(failure.core)) return *code;
  if (failure.core == core::kErrSeeErrno) return CodeByErrno(failure);
  LogError(1490, "Failed to copy %s to %s, reason=[%X], %s", srcPath, destPath,
           static_cast<unsigned>(VLIBCErrGet()), std::strerror(errno));
  return CodeByCoreError(failure);
}

}  // namespace Fennox
