// Turns the validated sources into the worker's two entry maps.
#include <sys/stat.h>

#include <cerrno>

#include "support/path_info.h"
#include "webapi/handler.h"
#include "webapi/json_read.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

constexpr int kPathChecks = 32;

// What the request says about conflicts, for all sources and for each.
class ConflictRules {
 public:
  ConflictRules(int overwriteMode, const Json::Value& overwriteList, bool renameMode,
                const Json::Value& renameList)
      : requestMode_(overwriteMode),
        overwriteList_(overwriteList),
        renameMode_(renameMode),
        renameList_(renameList) {}

  // The conflict mode of source `i`; to be asked once for each source.
  int ModeOf(Json::ArrayIndex i) {
    if (WantsNewName(i)) return CONFLICT_RENAME;
    const int mode = OverwriteModeOf(i);
    if (mode == CONFLICT_SKIP) combined_ = CONFLICT_SKIP;
    return mode;
  }

  // The mode that stands for all sources that were asked for.
  int Combined() const { return combined_; }

 private:
  static bool IsTrue(const Json::Value& list, Json::ArrayIndex i) {
    return list.isValidIndex(i) && TextOf(list[i]) == "true";
  }
  int OverwriteModeOf(Json::ArrayIndex i) const {
    if (!overwriteList_.isArray() || !overwriteList_.isValidIndex(i)) return requestMode_;
    return IsTrue(overwriteList_, i) ? CONFLICT_OVERWRITE : CONFLICT_SKIP;
  }
  bool WantsNewName(Json::ArrayIndex i) const {
    return renameMode_ && (renameList_.empty() || IsTrue(renameList_, i));
  }

  const int requestMode_;
  const Json::Value& overwriteList_;
  const bool renameMode_;
  const Json::Value& renameList_;
  int combined_ = CONFLICT_OVERWRITE;
};

// Sizes make the total only under accurate progress.
void AddSize(const std::string& path, unsigned long long size) {
  _dirSizeCache.emplace(path, size);
  _totalAmount += size;
}

}  // namespace

void FennoxMVCPHandler::WebFMParseInputFiles(const std::vector<PathInfo>& srcPathInfos,
                                             EntryMap& fileMap, EntryMap& dirMap,
                                             int& overwriteMode, const Json::Value& overwriteList,
                                             const bool& renameMode,
                                             const Json::Value& renameList) {
  ConflictRules rules(overwriteMode, overwriteList, renameMode, renameList);
  for (std::size_t i = 0; i < srcPathInfos.size(); ++i) {
    const PathInfo& source = srcPathInfos[i];
    const std::string& path = source.realPath;
    ENTRY_STAT entry{source.sharePath,   source.codePage,
                     WEBFM_OK,           rules.ModeOf(static_cast<Json::ArrayIndex>(i)),
                     MOVE_NOT_PROCESSED, false};
    struct stat status {};
    if (WfmCheckPath(path.c_str(), false, kPathChecks, nullptr, false,
                     WfmLibIsVFSSharePath(source.sharePath.c_str()), nullptr) != 0) {
      entry.error = WfmLibGetErr();
      dirMap.emplace(path, entry);
      LogError(806, "Invalid path:%s, reason=[%X]", path.c_str(),
               static_cast<unsigned int>(WfmLibGetErr()));
    } else if (lstat(path.c_str(), &status) != 0) {
      entry.error = ParseErrnoToError(errno, nullptr, nullptr);
      dirMap.emplace(path, entry);
    } else if (S_ISREG(status.st_mode)) {
      fileMap.emplace(path, entry);
      if (_accurateProgress) AddSize(path, static_cast<unsigned long long>(status.st_size));
    } else if (S_ISDIR(status.st_mode)) {
      if (_accurateProgress) {
        AddSize(path, static_cast<unsigned long long>(MVCPScanDirectory(path.c_str())));
      }
      dirMap.emplace(path, entry);
    } else {
      entry.error = WEBFM_FAILED;
      dirMap.emplace(path, entry);
    }
  }
  if (!_accurateProgress) _totalAmount = srcPathInfos.size();
  if (!overwriteList.empty()) overwriteMode = rules.Combined();
}

}  // namespace Fennox
