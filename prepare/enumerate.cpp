// Turns the validated sources into the worker's two entry maps.
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

#include "prepare/path_rules.h"
#include "support/path_info.h"
#include "webapi/handler.h"
#include "webapi/json_read.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"
#include "webapi/source_look.h"

namespace Fennox {
namespace {

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

bool IsAcceptable(const PathInfo& source) {
  return WfmCheckPath(source.realPath.c_str(), false, kPathChecks, nullptr, false,
                      WfmLibIsVFSSharePath(source.sharePath.c_str()), nullptr) == 0;
}

bool Look(const PathInfo& source, SourceLook* look) {
  struct stat status {};
  if (lstat(source.realPath.c_str(), &status) != 0) return false;
  *look = {status.st_mode, status.st_size};
  return true;
}

// The look at source `i`; false with the entry's error when there can be none.
bool LookInTurn(FileWebAPI& api, std::size_t i, const PathInfo& source, SourceLook* look,
                int* error) {
  const auto early = _sourceLooks ? _sourceLooks->Take(i) : std::nullopt;
  if (early) {
    *look = *early;
    return true;
  }
  if (!IsAcceptable(source)) {
    *error = WfmLibGetErr();
    LogError(806, "Invalid path:%s, reason=[%X]", source.realPath.c_str(),
             static_cast<unsigned int>(WfmLibGetErr()));
    return false;
  }
  if (Look(source, look)) return true;
  *error = api.ParseErrnoToError(errno, nullptr, nullptr);
  return false;
}

// Requests mostly name their sources in order, so the end is a good guess.
template <class Map, class Value>
void Add(Map& map, const std::string& path, Value&& value) {
  map.emplace_hint(map.end(), path, std::forward<Value>(value));
}

// Sizes make the total only under accurate progress.
void AddSize(const std::string& path, unsigned long long size) {
  Add(_dirSizeCache, path, size);
  _totalAmount += size;
}

}  // namespace

void LookAtSourcesEarly() {
  const auto look = [](std::size_t i) -> std::optional<SourceLook> {
    const PathInfo& source = _srcPathInfos[i];
    SourceLook found{};
    if (!IsAcceptable(source) || !Look(source, &found)) return std::nullopt;
    return found;
  };
  _sourceLooks = std::make_unique<core::FromBehind<SourceLook>>(_srcPathInfos.size(), look);
}

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
    SourceLook look{};
    if (!LookInTurn(*this, i, source, &look, &entry.error)) {
      Add(dirMap, path, std::move(entry));
    } else if (S_ISREG(look.mode)) {
      Add(fileMap, path, std::move(entry));
      if (_accurateProgress) AddSize(path, static_cast<unsigned long long>(look.size));
    } else if (S_ISDIR(look.mode)) {
      if (_accurateProgress) {
        AddSize(path, static_cast<unsigned long long>(MVCPScanDirectory(path.c_str())));
      }
      Add(dirMap, path, std::move(entry));
    } else {
      entry.error = WEBFM_FAILED;
      Add(dirMap, path, std::move(entry));
    }
  }
  _sourceLooks.reset();
  if (!_accurateProgress) _totalAmount = srcPathInfos.size();
  if (!overwriteList.empty()) overwriteMode = rules.Combined();
}

}  // namespace Fennox
