// The handler of one request; its members are implemented by the folders that
// own them.
#pragma once

#include <json/value.h>
#include <cstdint>
#include <string>
#include <vector>

#include "prepare/entry_records.h"
#include "support/errors.h"
#include "support/search_index.h"
#include "webapi/file_web_api.h"
#include "webapi_runtime/tavo_conf.h"

namespace Fennox {

// Everything that a "start" request derives before it forks; the worker
// inherits it.
struct StartContext;

class FennoxMVCPHandler final : public FileWebAPI {
 public:
  FennoxMVCPHandler(TAVO::APIRequest* request, TAVO::APIResponse* response);
  ~FennoxMVCPHandler();

  void Process() override;

  // task/
  bool WebFMMVCPHandler();
  bool MVCPInitProgressFile(int workerPid, bool onRemoteMount);
  bool WebFMMVCPProgressHandler();
  bool WebFMCancelMVCPHandler();
  [[noreturn]] void RunWorker(StartContext& start);

  // prepare/
  bool PreProcessAndCheck(Json::Value& sourcePaths, std::string& destFolder,
                          std::vector<PathInfo>& srcPathInfos, _tag_action_type_ actionType,
                          std::string& destParam, int& overwriteMode, bool& srcIsVfs,
                          bool& destIsVfs, std::string& destCodePage, std::string& srcProtocol,
                          std::string& destProtocol);
  void WebFMParseInputFiles(const std::vector<PathInfo>& srcPathInfos, EntryMap& fileMap,
                            EntryMap& dirMap, int& overwriteMode, const Json::Value& overwriteList,
                            const bool& renameMode, const Json::Value& renameList);

  // engine/
  std::int64_t WebFMMVCPAction(EntryMap& entries, const std::string& destFolder, bool isDirMap,
                               int overwriteMode, _tag_action_type_ actionType,
                               const std::string& destParam, const std::string& destCodePage);
  bool IsSubPath(std::string path, std::string base);

  // results/
  void postMVCP(EntryMap::iterator entry, _tag_action_type_ actionType, int overwriteMode,
                bool isDirMap, WEBFMERR error, const char* srcPath, const char* srcSharePath,
                const char* destSharePath, const char* destParam, const char* destPath,
                bool xferLogEnabled, bool inSearchScope, bool destExisted,
                FileSearch::WfmSearchDBTask* searchDB);
  bool MVCPUpdateFailFile(_tag_action_type_ actionType, const char* path, WEBFMERR code,
                          const char* unused);

  const TavoConf& settings() const { return conf; }
  const std::string& destination() const { return destSharePath; }
  TAVO::APIRequest* apiRequest() const { return request; }

 private:
  TavoConf conf;
  std::string destSharePath;  // destination folder as the user names it
};

}  // namespace Fennox
