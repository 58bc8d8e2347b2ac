#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include "core/config.h"
#include "core/utf8.h"
#include "path_syntax.h"
#include "real_path.h"
#include "support/errors.h"
#include "support/path_info.h"
#include "utf8.h"
#include "vfs/vfs.h"

namespace {

bool HasControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
}

// Character set of names at a real path, by the innermost share that holds it.
std::string CodePageAt(std::string_view path, bool isVfs) {
  vfs::MountInfo mount;
  if (isVfs && vfs::FindByFullPath(std::string(path), &mount)) return mount.code_page;
  std::string codePage = "UTF-8";
  std::size_t longest = 0;
  for (const core::ShareConfig& share : core::CurrentConfig().shares) {
    std::string root;
    if (!support::RealPath(share.path, &root)) continue;
    if (root.size() > longest && support::IsAtOrBelow(path, root)) {
      longest = root.size();
      codePage = share.code_page;
    }
  }
  return codePage;
}

int CheckRealPath(std::string_view path, bool isVfs) {
  if (!path.starts_with('/')) return WEBFM_ILLEGAL_NAME;
  if (path.size() > support::kMaxPath) return WEBFM_NAME_TOO_LONG;
  std::vector<std::string_view> components;
  const int code = support::SplitPath(path.substr(1), &components);
  if (code != WEBFM_OK) return code;
  // Line ends cut FTP commands, and WebDAV's XML cannot hold control characters.
  if (isVfs && HasControlCharacter(path)) return WEBFM_ILLEGAL_NAME;
  // Only a name that is not valid is worth the search for its share.
  if (!core::IsUtf8(path) && support::IsUtf8Name(CodePageAt(path, isVfs))) {
    return WEBFM_ILLEGAL_NAME;
  }
  return WEBFM_OK;
}

}  // namespace

int WfmCheckPath(const char* path, bool, int /*flags*/, const char*, bool, bool isVfs, void*) {
  const int saved = errno;
  const int code = CheckRealPath(path ? path : "", isVfs);
  errno = saved;
  if (code == WEBFM_OK) return 0;
  support::SetErr(code);
  return -1;
}
