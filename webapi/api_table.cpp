#include "webapi/api_table.h"

#include "webapi/handler.h"
#include "webapi/log.h"

namespace Fennox {
namespace {

constexpr const char* kApiName = kModuleName;
constexpr char kStart[] = "start";
constexpr char kStatus[] = "status";
constexpr char kStop[] = "stop";

}  // namespace

void MVCPWebAPIEntry(TAVO::APIRequest* request, TAVO::APIResponse* response) {
  FennoxMVCPHandler handler(request, response);
  handler.Run();
}

}  // namespace Fennox

extern "C" {

using Fennox::MVCPWebAPIEntry;

constexpr APITableEntry gTable[Fennox::kApiRows + 1] = {
    {Fennox::kApiName, 1, Fennox::kStart, MVCPWebAPIEntry},
    {Fennox::kApiName, 1, Fennox::kStatus, MVCPWebAPIEntry},
    {Fennox::kApiName, 1, Fennox::kStop, MVCPWebAPIEntry},
    {Fennox::kApiName, 2, Fennox::kStart, MVCPWebAPIEntry},
    {Fennox::kApiName, 2, Fennox::kStatus, MVCPWebAPIEntry},
    {Fennox::kApiName, 2, Fennox::kStop, MVCPWebAPIEntry},
    {Fennox::kApiName, 3, Fennox::kStart, MVCPWebAPIEntry},
    {Fennox::kApiName, 3, Fennox::kStatus, MVCPWebAPIEntry},
    {Fennox::kApiName, 3, Fennox::kStop, MVCPWebAPIEntry},
    {nullptr, 0, nullptr, nullptr},
};

const APITableEntry* GetAPITable() { return gTable; }
}
