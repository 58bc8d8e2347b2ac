// Text of paths.
#pragma once

#include <string>

namespace Fennox {

// What follows the last "/", trailing slashes left out; "/" for the root.
inline std::string LastComponent(const std::string& path) {
  const std::size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return path.empty() ? "." : "/";
  const std::size_t slash = path.find_last_of('/', end);
  const std::size_t begin = slash == std::string::npos ? 0 : slash + 1;
  return path.substr(begin, end + 1 - begin);
}

}  // namespace Fennox
