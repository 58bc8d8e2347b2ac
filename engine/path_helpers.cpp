#include <unistd.h>

#include "fileop/copy.h"
#include "webapi/module_calls.h"

namespace Fennox {

bool MVCPIsWithinPath(const std::string& path, const std::string& base) {
  return path.starts_with(base) && (path.size() == base.size() || path[base.size()] == '/');
}

std::string MVCPGenerateNewName(const std::string& path) {
  constexpr int kBufferSize = 4096;
  if (access(path.c_str(), F_OK) != 0) return path;
  char buffer[kBufferSize] = {};
  return Default_GenerateNewName(path.c_str(), buffer, kBufferSize) >= 0 ? buffer : path;
}

}  // namespace Fennox
