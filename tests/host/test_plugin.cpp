#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "core/process.h"
#include "tasks/task.h"
#include "webapi_runtime/api_table.h"

namespace {

void Echo(TAVO::APIRequest* request, TAVO::APIResponse* response) {
  Json::Value data(Json::objectValue);
  data["value"] = request->GetParam("value", Json::Value());
  data["user"] = request->GetLoginUserName();
  data["pid"] = static_cast<int>(::getpid());
  response->SetError(0, data);
}

void Throw(TAVO::APIRequest*, TAVO::APIResponse*) { throw std::runtime_error("out of paper"); }

void MistakeType(TAVO::APIRequest* request, TAVO::APIResponse*) {
  static_cast<void>(request->GetParam("value", Json::Value()).asString());
}

void Crash(TAVO::APIRequest*, TAVO::APIResponse*) { ::_exit(77); }

// Starts a worker that never writes its end. "end": the status it exits with, or absent
// for one that runs on; "throw": it throws instead.
void Work(TAVO::APIRequest* request, TAVO::APIResponse* response) {
  const std::string user = request->GetLoginUserName();
  const std::string id = KVX::TaskMgr(user.c_str()).getUniqueTaskId("Test_");
  KVX::Task task(user.c_str(), id.c_str());
  const pid_t worker = VLIBCProcFork();
  if (worker == 0) {
    if (request->HasParam("throw")) throw std::runtime_error("the worker is lost");
    if (request->HasParam("end")) {
      ::usleep(200 * 1000);
      ::_exit(request->GetParam("end", 0).asInt());
    }
    while (true) ::pause();
  }
  Json::Value data(Json::objectValue);
  data["pid"] = static_cast<int>(worker);
  data["path"] = "/here";
  task.beginUpdate();
  task.setProperty("progress", 0);
  task.setProperty("data", data);
  task.endUpdate();
  data["id"] = id;
  response->SetError(0, data);
}

constexpr const char* kApi = "Test";
const APITableEntry kTable[] = {{kApi, 1, "echo", Echo},           {kApi, 1, "throw", Throw},
                                {kApi, 1, "mistake", MistakeType}, {kApi, 1, "crash", Crash},
                                {kApi, 1, "work", Work},           {kApi, 1, "status", Echo},
                                {nullptr, 0, nullptr, nullptr}};

}  // namespace

extern "C" const APITableEntry* GetAPITable() { return kTable; }
