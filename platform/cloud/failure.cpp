#include "failure.h"

#include <cerrno>

#include "core/error.h"

namespace TAVOCloud {
namespace {

constexpr long kNoDataConnection = 425;
constexpr long kTransferBroken = 426;
constexpr long kNoSpace = 452;
constexpr long kOverQuota = 552;

Failure Of(int system, int core, const Outcome& outcome) {
  return {system, core, outcome.code, false};
}

Failure Of(int system, const Outcome& outcome) {
  return Of(system, core::ErrorFromErrno(system), outcome);
}

Failure Broken(int system, const Outcome& outcome) {
  return {system, core::kErrHostDown, outcome.code, true};
}

// A greeting that refuses, or a data connection that is not to be had.
bool LacksConnection(const Outcome& outcome) {
  return outcome.response == kNoDataConnection ||
         (outcome.response == kServiceClosing && outcome.fresh);
}

bool IsLost(const Outcome& outcome) {
  switch (outcome.code) {
    case CURLE_COULDNT_CONNECT:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_SSL_CONNECT_ERROR:
      return true;
    case CURLE_QUOTE_ERROR:  // without an answer of the server
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_FTP_WEIRD_PASV_REPLY:
    case CURLE_UPLOAD_FAILED:
      return outcome.response == 0 || outcome.response == kServiceClosing ||
             outcome.response == kTransferBroken;
    default:
      return false;
  }
}

Failure OfRefusal(const Outcome& outcome) {
  if (outcome.response == kNoSpace) return Of(ENOSPC, outcome);
  if (outcome.response == kOverQuota) return Of(EDQUOT, outcome);
  return outcome.response >= 500 ? Of(EACCES, outcome) : Of(EIO, outcome);
}

}  // namespace

Failure Explain(const Outcome& outcome) {
  if (LacksConnection(outcome)) {
    return {EBUSY, core::kErrHostDown, kNoMoreConnections, true};
  }
  if (IsLost(outcome)) {
    return Broken(outcome.os_error != 0 ? outcome.os_error : ECONNRESET, outcome);
  }
  switch (outcome.code) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return Of(EHOSTUNREACH, outcome);
    case CURLE_LOGIN_DENIED:
    case CURLE_REMOTE_ACCESS_DENIED:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_USE_SSL_FAILED:
      return Of(EACCES, outcome);
    case CURLE_REMOTE_FILE_NOT_FOUND:
    case CURLE_FTP_COULDNT_RETR_FILE:
      return Of(ENOENT, outcome);
    case CURLE_REMOTE_DISK_FULL:
      return Of(ENOSPC, outcome);
    case CURLE_REMOTE_FILE_EXISTS:
      return Of(EEXIST, outcome);
    case CURLE_URL_MALFORMAT:
      return Of(EILSEQ, core::kErrIllegalName, outcome);
    case CURLE_QUOTE_ERROR:
    case CURLE_UPLOAD_FAILED:
      return OfRefusal(outcome);
    case CURLE_OUT_OF_MEMORY:
      return Of(ENOMEM, outcome);
    default:
      return Of(EIO, outcome);
  }
}

}  // namespace TAVOCloud
