#include "webapi/file_web_api.h"

#include <cerrno>
#include <cstring>

#include "support/errors.h"
#include "support/identity.h"
#include "webapi/log.h"

namespace Fennox {

FileWebAPI::FileWebAPI(TAVO::APIRequest* request, TAVO::APIResponse* response)
    : savedUmask(0), errorCode(0), request(request), response(response) {
  savedUmask = WfmLibUmask();
}

FileWebAPI::~FileWebAPI() { WfmLibRestoreUmask(savedUmask); }

bool FileWebAPI::Run() {
  const std::string user = request->GetLoginUserName();
  if (WfmLibUGIDSet(nullptr, user.c_str()) < 0) {
    SetError(WfmLibGetErr());
    LogErrorWithPrefix("webfm_webapi:54 ", "Failed to set UGID, %s", std::strerror(errno));
    return OutputResponse();
  }
  Process();
  return OutputResponse();
}

void FileWebAPI::SetResponse(Json::Value& value) {
  responseData = value;
  errorCode = 0;
}

void FileWebAPI::SetError(int code, Json::Value& detail) {
  responseData = detail;
  errorCode = code;
}

void FileWebAPI::SetError(int code) {
  Json::Value none;
  SetError(code, none);
}

int FileWebAPI::GetError() { return errorCode; }

bool FileWebAPI::OutputResponse() { return response->SetError(errorCode, responseData); }

int FileWebAPI::ParseErrnoToError(int err, const char* path, const char* path2) {
  return WfmParseErrnoToError(err, path, path2);
}

void FileWebAPI::ParseFileError(const char* path, int code, Json::Value& target) {
  target["code"] = code;
  target["path"] = path;
}

void FileWebAPI::SetFileError(int code, const char* path, int fileCode) {
  Json::Value entry;
  ParseFileError(path, fileCode, entry);
  Json::Value list(Json::arrayValue);
  list.append(entry);
  SetError(code, list);
}

}  // namespace Fennox
