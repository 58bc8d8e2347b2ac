// The table by which a plug-in tells the server what it serves.
#pragma once

#include <cstdint>

#include "webapi_runtime/api_request.h"
#include "webapi_runtime/api_response.h"

// One served method. A table ends with a row that is all zero. The server
// finds it through the plug-in's exported function
//   extern "C" const APITableEntry* GetAPITable();
struct APITableEntry {
  const char* api;
  std::int32_t version;
  const char* method;
  void (*handler)(TAVO::APIRequest*, TAVO::APIResponse*);
};
