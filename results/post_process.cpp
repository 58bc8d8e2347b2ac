// What follows every copied, moved or failed entry.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "results/search_update.h"
#include "support/text.h"
#include "support/transfer_log.h"
#include "webapi/handler.h"
#include "webapi/json_read.h"
#include "webapi/log.h"
#include "webapi/module_state.h"
#include "webapi/paths.h"

namespace Fennox {
namespace {

// The source as the transfer log shows it: a received file with the name of
// its sender and the path it had there.
std::string SourceText(const char* srcPath, const std::string& language) {
  Json::Value sharing;
  if (!_processingPath.starts_with("sharing://") || !WfmLibGetFileXAtrr(srcPath, sharing)) {
    return _processingPath;
  }
  const std::string format = WfmLibGetText("download_log_desc", language);
  return WfmLibStringFormat(format, TextMemberOf(sharing, "name")) + " " +
         TextMemberOf(sharing, "path");
}

off_t SizeOf(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) {
    LogError(1667, "Failed to stat file (%s), %s.", path, std::strerror(errno));
    return 0;
  }
  return status.st_size;
}

struct TransferLine {
  std::string codePage;
  const char* srcPath;
  const char* destSharePath;
  const char* destPath;
  bool isMove;
  bool isFolder;
};

void WriteTransferLine(const TAVO::APIRequest& request, const TransferLine& line) {
  const off_t size = SizeOf(line.destPath);
  std::string name;
  (void)WfmLibConv(name, LastComponent(line.destPath), line.codePage, "UTF-8");
  const std::string text =
      SourceText(line.srcPath, request.GetUILanguage()) + " -> " + line.destSharePath + "/" + name;
  (void)WfmLibDoLog(request.GetLoginUserName().c_str(), text.c_str(),
                    line.isFolder ? 0 : static_cast<std::uint64_t>(size),
                    line.isMove ? kXferMove : kXferCopy, line.isFolder);
}

}  // namespace

void FennoxMVCPHandler::postMVCP(EntryMap::iterator entry, _tag_action_type_ actionType,
                                 int overwriteMode, bool isDirMap, WEBFMERR error,
                                 const char* srcPath, const char* srcSharePath,
                                 const char* destSharePath, const char* destParam,
                                 const char* destPath, bool xferLogEnabled, bool inSearchScope,
                                 bool destExisted, FileSearch::WfmSearchDBTask* searchDB) {
  if (error != WEBFM_OK) {
    if (!MVCPUpdateFailFile(actionType, srcSharePath, error, destParam)) {
      LogError(1661, "MVCPUpdateFailFile error");
    }
  } else if (xferLogEnabled) {
    WriteTransferLine(*request, {entry->second.codePage, srcPath, destSharePath, destPath,
                                 actionType == ACTION_MOVE, isDirMap});
  }
  if (error == WEBFM_OK && searchDB != nullptr) {
    UpdateSearchIndex({actionType, overwriteMode, inSearchScope, destExisted,
                       ShareNameOf(entry->second.sharePath), srcPath, destParam, destPath},
                      *searchDB);
  }
  // Failed entries count, too: the total is the number of sources.
  if (!_accurateProgress) ++_processedNum;
}

}  // namespace Fennox
