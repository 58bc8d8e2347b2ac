// First content of a task's record.
#include <utility>

#include "support/path_info.h"
#include "support/text.h"
#include "task/start_parameters.h"
#include "tasks/task_helpers.h"
#include "vfs/vfs.h"
#include "webapi/handler.h"
#include "webapi/json_read.h"
#include "webapi/log.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

Json::Value InitialData(const TAVO::APIRequest& request, int workerPid) {
  Json::Value data(Json::objectValue);
  data["api"] = request.GetAPIClass();
  data["method"] = request.GetAPIMethod();
  data["version"] = request.GetAPIVersion();
  data["taskid"] = _task->getTaskId();
  data["pid"] = workerPid;
  data["path"] = "";
  data["processing_path"] = "";
  data["status"] = "NOT_STARTED";
  return data;
}

// Notes the remote mount of a path, so that others see which mounts are in use.
void NoteMount(const std::string& path, Json::Value& data) {
  std::string uri;
  if (WfmLibIsVFSSharePath(path.c_str()) && TAVOVFS::Utils::GetBaseURI(path.c_str(), uri, true)) {
    data["vfs_uri"][uri] = true;
  }
}

Json::Value PathList(const TAVO::APIRequest& request, const char* name) {
  return StringExplodeEx(request.GetParam(name, Json::Value()), ",", request.GetAPIVersion(),
                         false);
}

void StorePaths(const TAVO::APIRequest& request, Json::Value& data) {
  Json::Value& params = data["params"];
  if (request.HasParam("path")) {
    params["path"] = PathList(request, "path");
    for (const Json::Value& path : params["path"]) NoteMount(TextOf(path), data);
  }
  if (request.HasParam("dest_folder_path")) {
    const Json::Value list = PathList(request, "dest_folder_path");
    const std::string destination = TextOf(list.get(0U, ""));
    params["dest_folder_path"] = destination;
    NoteMount(destination, data);
  }
}

// The request's other values, as they were given.
void StoreOptions(const TAVO::APIRequest& request, Json::Value& params) {
  const auto store = [&](const char* name, const Json::Value& fallback) {
    if (request.HasParam(name)) params[name] = request.GetParam(name, fallback);
  };
  store("overwrite", "");
  store("remove_src", false);
  store("accurate_progress", true);
  store("search_taskid", Json::Value());
}

const char* ActionWord(const TAVO::APIRequest& request) {
  bool removeSource = false;
  const bool readable = ReadBoolean(request.GetParam("remove_src", false), removeSource);
  return readable && removeSource ? "move" : "copy";
}

}  // namespace

bool FennoxMVCPHandler::MVCPInitProgressFile(int workerPid, bool onRemoteMount) {
  Json::Value data = InitialData(*request, workerPid);
  if (onRemoteMount) {
    data["is_vfs"] = true;
    data["vfs_uri"] = Json::Value(Json::objectValue);
    data["proc_name"] = kModuleName;
  }
  data["params"] = Json::Value(Json::objectValue);
  StorePaths(*request, data);
  StoreOptions(*request, data["params"]);
  data[_task->getTaskId()] = WfmLibBkgTaskInfoCreate(data, ActionWord(*request));

  _task->beginUpdate();
  _task->setProperty("progress", 0);
  _task->setProperty("data", std::move(data));
  if (!_task->endUpdate()) {
    LogError(330, "Failed to write progress.");
    SetError(WEBFM_FAILED);
    return false;
  }
  return true;
}

}  // namespace Fennox
