#include "server_cloud.h"

#include <syslog.h>

#include <cerrno>

#include "core/error.h"
#include "server_path.h"

namespace TAVOCloud {

ServerCloud::ServerCloud(const std::string& serverId, const char* source) : source_(source) {
  serverId_ = serverId;
}

bool ServerCloud::Fail(int system, int core) {
  errno = system;
  VLIBCErrSetEx(core, __FILE__, __LINE__);
  return false;
}

bool ServerCloud::Fail(const Failure& failure, const std::string& words) {
  errorCode_ = failure.cloud;
  syslog(LOG_ERR, "%s:%d Remote %s: %s", source_, __LINE__, Name().c_str(), words.c_str());
  return Fail(failure.system, failure.core);
}

bool ServerCloud::FailLocally(const Flow& flow) {
  return Fail(flow.error(), core::ErrorFromErrno(flow.error()));
}

bool ServerCloud::CheckPath(const std::string& path) {
  errorCode_ = 0;
  return IsSendablePath(path) || Fail(EILSEQ, core::kErrIllegalName);
}

void ServerCloud::RemoveLeftoversBeside(const std::string& path) {
  const std::string folder = FolderOf(path);
  if (!seen_.Add(folder)) return;
  for (const std::string& name : LeftoversIn(folder)) RemoveLeftover(folder + name);
}

}  // namespace TAVOCloud
