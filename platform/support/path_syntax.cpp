#include "path_syntax.h"

#include "support/errors.h"

namespace support {

namespace {

int CheckComponent(std::string_view name) {
  if (name.empty() || name == "." || name == "..") return WEBFM_ILLEGAL_NAME;
  if (name.find('\0') != std::string_view::npos) return WEBFM_ILLEGAL_NAME;
  return name.size() > kMaxComponent ? WEBFM_NAME_TOO_LONG : WEBFM_OK;
}

}  // namespace

int SplitPath(std::string_view path, std::vector<std::string_view>* components) {
  components->clear();
  if (path.size() > kMaxPath) return WEBFM_NAME_TOO_LONG;
  if (path.empty()) return WEBFM_OK;
  while (true) {
    const std::size_t slash = path.find('/');
    const std::string_view name = path.substr(0, slash);
    const int code = CheckComponent(name);
    if (code != WEBFM_OK) return code;
    components->push_back(name);
    if (slash == std::string_view::npos) return WEBFM_OK;
    path.remove_prefix(slash + 1);
  }
}

bool IsAtOrBelow(std::string_view path, std::string_view base) {
  if (base == "/") return path.starts_with('/');
  return path.starts_with(base) && (path.size() == base.size() || path[base.size()] == '/');
}

}  // namespace support
