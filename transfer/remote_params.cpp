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

// Log numbers of the two look-ups that can fail; 0: not logged.
struct LookUpLines {
  int protocol = 0;
  int description = 0;
};

constexpr LookUpLines kSilent;

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
    if (lines.protocol != 0) {
      LogError(lines.protocol, "Failed to get protocol %s", path.sharePath.c_str());
    }
    return false;
  }
  Json::Value description;
  if (!TAVOVFS::Protocol::GetProtocol(protocol.c_str(), description)) {
    if (lines.description != 0) {
      LogError(lines.description, "Failed to parse the protocol %s", protocol.c_str());
    }
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

// The first source that holds the path; null when there is none.
const PathInfo* SourceOf(const std::string& path) {
  const auto found = std::find_if(
      _srcPathInfos.begin(), _srcPathInfos.end(),
      [&](const PathInfo& candidate) { return MVCPIsWithinPath(path, candidate.realPath); });
  return found == _srcPathInfos.end() ? nullptr : &*found;
}

// Looks the source's parameters up unless they are remembered.
bool FillSource(const PathInfo& top, LookUpLines lines, COPY_PARM& params, TransferJob& job) {
  const auto known = _mapCopyParam.find(top.remoteBase);
  if (known != _mapCopyParam.end()) {
    params = known->second;
  } else {
    const bool oneConnection = AllowsOneConnection(top.sharePath);
    if (!LookUp(top, lines, params)) return false;
    params.remoteBase = top.remoteBase;
    job.singleConnection = oneConnection;
  }
  TakeParams(params, top, job.src, job.source);
  return true;
}

bool FillDest(LookUpLines lines, TransferJob& job) {
  if (AllowsOneConnection(_destPathInfo.sharePath)) job.singleConnection = true;
  if (!LookUp(_destPathInfo, lines, _destCopyParam)) return false;
  TakeParams(_destCopyParam, _destPathInfo, job.dst, job.dest);
  return true;
}

}  // namespace

bool LookAtParams(TransferJob& job) {
  if (job.source.isVfs) {
    const PathInfo* top = SourceOf(job.src);
    COPY_PARM params;
    if (top == nullptr || !FillSource(*top, kSilent, params, job)) return false;
  }
  return !job.dest.isVfs || FillDest(kSilent, job);
}

bool FindSourceParams(TransferJob& job) {
  const PathInfo* top = SourceOf(job.src);
  COPY_PARM params;
  if (top != nullptr) {
    if (!FillSource(*top, {1009, 1015}, params, job)) return false;
    _mapCopyParam.try_emplace(top->remoteBase, params);
  }
  if (!job.source.protocol.empty()) return true;
  LogError(1033, "Can't find the path");
  return false;
}

bool FindDestParams(TransferJob& job) { return FillDest({1056, 1060}, job); }

}  // namespace Fennox
