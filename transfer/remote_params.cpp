#include "transfer/remote_params.h"

#include <algorithm>

#include "support/path_info.h"
#include "vfs/vfs.h"
#include "webapi/json_read.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

// Log numbers of the two look-ups that can fail.
struct LookUpLines {
  int protocol;
  int description;
};

bool AllowsOneConnection(const std::string& sharePath) {
  std::string codePage;
  int maxConnection = 0;
  (void)WfmLibGetVFSCodePageAndMaxConnection(sharePath.c_str(), TAVOVFS::GetActorUID(), codePage,
                                             maxConnection);
  return maxConnection == 1;
}

bool LookUp(const PathInfo& path, LookUpLines lines, COPY_PARM& found) {
  std::string protocol;
  if (!TAVOVFS::Utils::GetProtocol(path.sharePath.c_str(), protocol)) {
    LogError(lines.protocol, "Failed to get protocol %s", path.sharePath.c_str());
    return false;
  }
  Json::Value description;
  if (!TAVOVFS::Protocol::GetProtocol(protocol.c_str(), description)) {
    LogError(lines.description, "Failed to parse the protocol %s", protocol.c_str());
    return false;
  }
  found = COPY_PARM();
  found.codePage = path.codePage;
  found.protocol = protocol;
  found.enableCurl = TextMemberOf(description, "enable_curl") == "true";
  return true;
}

void TakeParams(const COPY_PARM& params, const PathInfo& top, const std::string& path,
                TransferSide& side) {
  side.useCurl = params.enableCurl;
  side.protocol = params.protocol;
  side.remotePath = top.remoteBase;
  if (path.size() > top.realPath.size()) side.remotePath += path.substr(top.realPath.size());
}

// The source's parameters, looked up until they are remembered. False on failure.
bool SourceParams(const PathInfo& top, bool remember, bool& singleConnection, COPY_PARM& params) {
  const auto known = _mapCopyParam.find(top.remoteBase);
  if (known != _mapCopyParam.end()) {
    params = known->second;
    return true;
  }
  const bool oneConnection = AllowsOneConnection(top.sharePath);
  if (!LookUp(top, {1009, 1015}, params)) return false;
  params.remoteBase = top.remoteBase;
  singleConnection = oneConnection;
  if (remember) _mapCopyParam[top.remoteBase] = params;
  return true;
}

bool FillSource(TransferJob& job, bool remember) {
  const std::string path = job.src;
  const auto top = std::find_if(
      _srcPathInfos.begin(), _srcPathInfos.end(),
      [&](const PathInfo& candidate) { return MVCPIsWithinPath(path, candidate.realPath); });
  if (top != _srcPathInfos.end()) {
    COPY_PARM params;
    if (!SourceParams(*top, remember, job.singleConnection, params)) return false;
    TakeParams(params, *top, path, job.source);
  }
  return !job.source.protocol.empty();
}

}  // namespace

bool LookAtSourceParams(TransferJob& job) { return FillSource(job, false); }

bool FindSourceParams(TransferJob& job) {
  if (FillSource(job, true)) return true;
  if (job.source.protocol.empty()) LogError(1033, "Can't find the path");
  return false;
}

bool FindDestParams(TransferJob& job) {
  if (AllowsOneConnection(_destPathInfo.sharePath)) job.singleConnection = true;
  if (!LookUp(_destPathInfo, {1056, 1060}, _destCopyParam)) return false;
  TakeParams(_destCopyParam, _destPathInfo, job.dst, job.dest);
  return true;
}

}  // namespace Fennox
