#include "webapi/handler.h"

namespace Fennox {

bool FennoxMVCPHandler::IsSubPath(std::string path, std::string base) {
  if (path.size() < base.size()) return false;
  // The closing slashes keep /a/bc out of /a/b.
  path += '/';
  base += '/';
  return path.starts_with(base);
}

}  // namespace Fennox
