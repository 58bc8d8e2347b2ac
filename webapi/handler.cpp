#include "webapi/handler.h"

#include "webapi/module_state.h"

namespace Fennox {

FennoxMVCPHandler::FennoxMVCPHandler(TAVO::APIRequest* request, TAVO::APIResponse* response)
    : FileWebAPI(request, response) {}

FennoxMVCPHandler::~FennoxMVCPHandler() {
  delete _task;
  _task = nullptr;
}

void FennoxMVCPHandler::Process() {
  const std::string method = request->GetAPIMethod();
  if (method == "start") {
    WebFMMVCPHandler();
  } else if (method == "status") {
    WebFMMVCPProgressHandler();
  } else if (method == "stop") {
    WebFMCancelMVCPHandler();
  } else {
    SetError(WEBFM_UNKNOWN_METHOD);
  }
}

}  // namespace Fennox
