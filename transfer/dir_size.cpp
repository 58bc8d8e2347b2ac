#include "core/file.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {

unsigned long long MVCPGetDirSize(const char* sourcePath, const char* currentPath) {
  const auto known = _dirSizeCache.find(sourcePath);
  return known != _dirSizeCache.end() ? known->second : VLIBGetFullDirSize(currentPath);
}

unsigned long long MVCPGetDirSizeCallback(const char* sourcePath, const char* currentPath) {
  if (sourcePath == nullptr || currentPath == nullptr) return 0;
  return MVCPGetDirSize(sourcePath, currentPath);
}

}  // namespace Fennox
