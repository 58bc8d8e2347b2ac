// What the plug-in shows to the server that loads it.
#pragma once

#include "webapi/export.h"
#include "webapi_runtime/api_table.h"

namespace Fennox {

inline constexpr int kApiRows = 9;

// Serves one request: the handler of every row.
void MVCPWebAPIEntry(TAVO::APIRequest* request, TAVO::APIResponse* response);

}  // namespace Fennox

extern "C" {

// The served methods, ended by a row that is all zero.
FENNOX_EXPORT extern const APITableEntry gTable[Fennox::kApiRows + 1];

// First row of gTable.
FENNOX_EXPORT const APITableEntry* GetAPITable();
}
