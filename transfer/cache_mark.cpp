#include "transfer/cache_mark.h"

#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "transfer/kept_error.h"
#include "vfs/mounts.h"
#include "webapi/module_state.h"

namespace Fennox {

void MarkCacheStale(const char* path) {
  constexpr char kName[] = "tavo::cacheclean";
  const KeptError keep;
  if (setxattr(vfs::ShortPath(path).c_str(), kName, "", 0, 0) == 0) return;
  // Some mounts in user space answer EIO to what they do not know.
  _mountTakesNoMarks = errno == ENOTSUP || errno == ENOSYS || errno == EIO;
  if (errno != ENOENT) return;
  sleep(1);
  (void)setxattr(path, kName, "", 0, 0);
}

}  // namespace Fennox
