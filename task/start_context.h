// What a "start" request derives before it forks; the worker inherits it.
#pragma once

#include <json/value.h>

#include <string>

#include "prepare/entry_records.h"
#include "tasks/task.h"
#include "vfs/vfs.h"

namespace Fennox {

struct StartContext {
  // Tasks on remote mounts that may run at the same time.
  static constexpr unsigned int kQueueSlots = 3;

  explicit StartContext(const std::string& user) : userName(user), taskRegistry(user.c_str()) {}

  std::string userName;  // the login user
  KVX::TaskMgr taskRegistry;
  TAVOVFS::TaskMgr vfsQueue{kQueueSlots};

  Json::Value sourcePaths;  // array of strings, in request order
  _tag_action_type_ action = ACTION_COPY;
  int overwriteMode = CONFLICT_ERROR;  // ConflictMode
  Json::Value overwriteList;           // one text per source, or null
  bool renameMode = false;
  Json::Value renameList;  // one text per source, or null

  std::string destFolder;             // real path
  std::string destParam;              // the destination's share part
  std::string destCodePage{"UTF-8"};  // character set of names there
  bool srcIsVfs = false;              // some source lies on a remote mount
  bool destIsVfs = false;
  std::string srcProtocol;
  std::string destProtocol;

  // The login user's ids, looked up by the worker.
  unsigned int uid = static_cast<unsigned int>(-1);
  unsigned int gid = static_cast<unsigned int>(-1);

  bool TouchesRemoteMount() const { return srcIsVfs || destIsVfs; }
};

}  // namespace Fennox
