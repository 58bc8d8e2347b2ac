#include "results/search_update.h"

#include <cerrno>
#include <cstring>

#include "core/error.h"
#include "core/file.h"
#include "webapi/log.h"

namespace Fennox {
namespace {

constexpr int kStatFlags = kStatBasic | kStatOwner;

void UpdateInScope(const SearchUpdate& update, FileSearch::WfmSearchDBTask& index) {
  TAVOSTAT status{};
  if (VLIBCFileLStat(update.destPath.c_str(), kStatFlags, &status) < 0) {
    LogError(1687, "VLIBCFileLStat: (%s), %s, tavoerr=%x.", update.destPath.c_str(),
             std::strerror(errno), static_cast<unsigned int>(VLIBCErrGet()));
    return;
  }
  // What stood there before was left alone.
  if (update.destExisted && update.overwriteMode != CONFLICT_OVERWRITE) return;
  if (update.action == ACTION_MOVE) {
    (void)index.updateFile(update.srcShare, update.srcPath, update.destShare, update.destPath,
                           status);
  } else if (update.destExisted) {
    (void)index.updateFile(update.destShare, update.destPath, update.destShare, update.destPath,
                           status);
  } else {
    (void)index.insertFile(update.srcShare, update.srcPath, update.destShare, update.destPath,
                           status);
  }
}

}  // namespace

std::string ShareNameOf(const std::string& sharePath) {
  const std::size_t begin = !sharePath.empty() && sharePath[0] == '/' ? 1 : 0;
  const std::size_t end = sharePath.find('/', begin);
  return sharePath.substr(begin, end == std::string::npos ? end : end - begin);
}

void UpdateSearchIndex(const SearchUpdate& update, FileSearch::WfmSearchDBTask& index) {
  if (update.inSearchScope) {
    UpdateInScope(update, index);
  } else if (update.action == ACTION_MOVE) {
    (void)index.delRecs(update.srcShare, update.srcPath);
  }
}

}  // namespace Fennox
