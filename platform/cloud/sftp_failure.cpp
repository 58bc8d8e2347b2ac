#include "sftp_failure.h"

#include <cerrno>

#include "core/error.h"
#include "sftp_packet.h"

namespace TAVOCloud {
namespace {

constexpr int kCloudError = 1;  // whatever else it is

int ErrnoOf(std::uint32_t status) {
  switch (status) {
    case kSftpNoSuchFile:
      return ENOENT;
    case kSftpPermissionDenied:
      return EACCES;
    case kSftpFileExists:
      return EEXIST;
    case kSftpNoSpace:
      return ENOSPC;
    case kSftpOverQuota:
      return EDQUOT;
    default:
      return EIO;
  }
}

Failure Of(int system) { return {system, core::ErrorFromErrno(system), kCloudError, false}; }

Failure Broken(int system) { return {system, core::kErrHostDown, kCloudError, true}; }

}  // namespace

Failure Explain(const SshOutcome& outcome) {
  using End = SshOutcome::End;
  switch (outcome.end) {
    case End::kStatus:
      if (outcome.status == kSftpNoConnection || outcome.status == kSftpConnectionLost) {
        return Broken(ECONNRESET);
      }
      return Of(ErrnoOf(outcome.status));
    case End::kNoAddress:
      return Of(EHOSTUNREACH);
    case End::kNotLetIn:
      return Of(EACCES);
    case End::kNoMore:
      return {EBUSY, core::kErrHostDown, kNoMoreConnections, true};
    case End::kNotReached:
      return Broken(outcome.os_error != 0 ? outcome.os_error : ECONNRESET);
    case End::kSilent:
      return Broken(ETIMEDOUT);
    case End::kLost:
      return Broken(ECONNRESET);
    default:
      return Of(EIO);
  }
}

}  // namespace TAVOCloud
