// Base of the module's request handlers.
#pragma once

#include <json/value.h>

#include "webapi_runtime/api_request.h"
#include "webapi_runtime/api_response.h"

namespace Fennox {

// Owns the plumbing of one request: umask, identity, and the one result that
// is delivered at the end. Used on one thread.
class FileWebAPI {
 public:
  FileWebAPI(TAVO::APIRequest* request, TAVO::APIResponse* response);
  ~FileWebAPI();
  FileWebAPI(const FileWebAPI&) = delete;
  FileWebAPI& operator=(const FileWebAPI&) = delete;

  // Switches to the login user, runs Process and delivers the result.
  virtual bool Run();
  virtual void Process() = 0;

  void SetResponse(Json::Value& value);
  void SetError(int code, Json::Value& detail);
  void SetError(int code);
  int GetError();
  bool OutputResponse();
  int ParseErrnoToError(int err, const char* path, const char* path2);
  void ParseFileError(const char* path, int code, Json::Value& target);
  void SetFileError(int code, const char* path, int fileCode);

 protected:
  unsigned int savedUmask;
  int errorCode;
  Json::Value responseData;
  TAVO::APIRequest* request;
  TAVO::APIResponse* response;
};

}  // namespace Fennox
