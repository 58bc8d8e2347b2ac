// The "start" method: checks a request, registers its task and forks the worker.
#include <sys/types.h>

#include "core/process.h"
#include "task/start_context.h"
#include "task/start_parameters.h"
#include "webapi/handler.h"
#include "webapi/log.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

bool MayUseProtocols(const StartContext& start) {
  const auto allowed = [&start](const std::string& protocol) {
    return TAVOVFS::Cfg::CheckPermissionByUserName(
        start.userName.c_str(), TAVOVFS::VFS_USER_CONFIG_PROTOCOL, protocol.c_str());
  };
  if (start.srcIsVfs && !allowed(start.srcProtocol)) return false;
  return !start.destIsVfs || allowed(start.destProtocol);
}

bool MakeTask(StartContext& start) {
  try {
    const std::string id = start.taskRegistry.getUniqueTaskId("Fennox_");
    _task = new KVX::Task(start.userName.c_str(), id.c_str());
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace

bool FennoxMVCPHandler::WebFMMVCPHandler() {
  StartContext start(request->GetLoginUserName());
  if (!ReadStartParameters(*request, start, destSharePath)) {
    SetError(WEBFM_BAD_PARAMETER);
    return false;
  }
  if (!PreProcessAndCheck(start.sourcePaths, start.destFolder, _srcPathInfos, start.action,
                          start.destParam, start.overwriteMode, start.srcIsVfs, start.destIsVfs,
                          start.destCodePage, start.srcProtocol, start.destProtocol)) {
    return false;
  }
  if (!MayUseProtocols(start)) {
    SetError(WEBFM_NO_PERMISSION);
    return false;
  }
  if (!MakeTask(start)) {
    SetError(WEBFM_FAILED);
    return false;
  }

  const pid_t worker = VLIBCProcFork();
  if (worker < 0) {
    _task->remove();
    LogError(551, "Failed to fork().");
    SetError(WEBFM_FAILED);
    return false;
  }
  if (worker == 0) RunWorker(start);

  // The record holds the worker's pid, so it can only be written now; the
  // worker waits for it.
  if (!MVCPInitProgressFile(worker, start.TouchesRemoteMount())) {
    SetError(WEBFM_FAILED);
    return false;
  }
  Json::Value answer(Json::objectValue);
  answer["taskid"] = _task->getTaskId();
  SetResponse(answer);
  return true;
}

}  // namespace Fennox
