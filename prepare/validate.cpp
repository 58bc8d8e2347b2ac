// Decides whether a request may run at all.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <set>
#include <utility>

#include "core/file.h"
#include "core/from_behind.h"
#include "core/user.h"
#include "prepare/path_rules.h"
#include "support/identity.h"
#include "support/path_info.h"
#include "support/privilege.h"
#include "vfs/vfs.h"
#include "webapi/handler.h"
#include "webapi/json_read.h"
#include "webapi/log.h"
#include "webapi/module_state.h"
#include "webapi/paths.h"

namespace Fennox {
namespace {

// What was found out about a source before its turn.
struct EarlyLook {
  PathInfo info;
  bool nameIsFree = false;  // in the destination
};

constexpr int kWriteAccess = 2;

// Values of a share's privileges.
constexpr int kPrivilegeNone = 0;
constexpr int kPrivilegeReadWrite = 2;
constexpr int kFlagNoChange = 1;
constexpr int kFlagNoDelete = 2;
constexpr int kFlagNoRead = 4;

struct Privileges {
  int type = kPrivilegeNone;
  int flags = 0;
};

// One request's validation. Every step answers false when it has refused, with
// the error set on the handler.
class Validation {
 public:
  struct Outputs {
    std::string& destFolder;
    std::string& destParam;
    int& overwriteMode;
    bool& srcIsVfs;
    bool& destIsVfs;
    std::string& destCodePage;
    std::string& srcProtocol;
    std::string& destProtocol;
  };

  Validation(FennoxMVCPHandler& handler, _tag_action_type_ action, const Outputs& out)
      : handler_(handler),
        action_(action),
        failed_(action == ACTION_MOVE ? WEBFM_MOVE_FAILED : WEBFM_COPY_FAILED),
        out_(out),
        dest_(handler.destination()),
        user_(handler.apiRequest()->GetLoginUserName()),
        session_(handler.apiRequest()->GetSessionID()),
        uid_(UserId()) {}

  bool CheckUser();
  bool CheckDestination();
  // What is asked before the turn of a source whose checks must not fail here.
  std::optional<EarlyLook> LookEarly(const std::string& source) const;
  bool CheckSource(const std::string& source, std::optional<EarlyLook> early, PathInfo& info);

 private:
  uid_t UserId() const { return TavoCgiUIDGet(session_.c_str(), user_.c_str()); }
  bool Refuse(int code) {
    handler_.SetError(code);
    return false;
  }
  bool RefusePath(int code, const std::string& path, int pathCode) {
    handler_.SetFileError(code, path.c_str(), pathCode);
    return false;
  }
  int QueryPrivileges(const std::string& path, Privileges& out) const {
    return WfmLibGetPrivilege(path.c_str(), user_.c_str(), session_.c_str(), &out.type, &out.flags);
  }

  bool OpenDestinationMount();
  bool CheckDestinationPrivileges();
  bool CheckDestinationPath();
  bool OpenSourceMount(const std::string& source);
  bool CheckSharePrivileges(const PathInfo& info);
  bool MayTakeFrom(const Privileges& privileges) const;
  bool CheckDestinationWritable(const PathInfo& info);
  bool NameIsFree(const PathInfo& info) const;
  bool CheckConflict(const PathInfo& info);

  FennoxMVCPHandler& handler_;
  const _tag_action_type_ action_;
  const int failed_;  // the request's error for a bad source
  const Outputs out_;
  const std::string& dest_;
  const std::string user_;
  const std::string session_;
  const uid_t uid_;
  bool vfsReady_ = false;
  bool destWritableChecked_ = false;
  std::set<std::string> checkedShares_;
};

bool Validation::CheckUser() {
  if (WfmLibUGIDSet(session_.c_str(), user_.c_str()) >= 0) return true;
  LogError(161, "Failed to set UGID for user=%s, sid=%s, %s", user_.c_str(), session_.c_str(),
           std::strerror(errno));
  return Refuse(WEBFM_FAILED);
}

bool Validation::CheckDestination() {
  if (!OpenDestinationMount()) return false;
  if (!PathInfoFactory::create(user_.c_str(), dest_, _destPathInfo)) {
    return RefusePath(WEBFM_DEST_FAILED, dest_, WfmLibGetErr());
  }
  out_.destFolder = _destPathInfo.realPath;
  out_.destParam = _destPathInfo.share;
  return CheckDestinationPrivileges() && CheckDestinationPath();
}

bool Validation::OpenDestinationMount() {
  out_.destIsVfs = WfmLibIsVFSSharePath(dest_.c_str());
  if (!out_.destIsVfs) return true;
  (void)TAVOVFS::InitGlobal(uid_, false);
  out_.destCodePage = WfmLibGetVFSCodePage(dest_.c_str(), uid_);
  vfsReady_ = true;
  return TAVOVFS::Utils::GetProtocol(dest_.c_str(), out_.destProtocol) || Refuse(WEBFM_FAILED);
}

bool Validation::CheckDestinationPrivileges() {
  if (IsDirUserHome(dest_.c_str(), nullptr)) return true;
  Privileges privileges;
  if (QueryPrivileges(dest_, privileges) != 0) {
    LogError(184, "Failed to check privilege of path %s, reason=[%d]", dest_.c_str(),
             WfmLibGetErr());
    return RefusePath(WEBFM_DEST_FAILED, dest_, WfmLibGetErr());
  }
  if (privileges.type != kPrivilegeReadWrite) {
    return RefusePath(WEBFM_DEST_FAILED, dest_, WEBFM_NO_PERMISSION);
  }
  // Where nothing may be replaced, whatever conflicts gets a new name.
  if ((privileges.flags & (kFlagNoChange | kFlagNoDelete)) != 0) {
    out_.overwriteMode = CONFLICT_RENAME;
  }
  return true;
}

bool Validation::CheckDestinationPath() {
  if (WfmCheckPath(out_.destFolder.c_str(), false, kPathChecks, nullptr, false, out_.destIsVfs,
                   nullptr) == 0) {
    return true;
  }
  RefusePath(WEBFM_DEST_FAILED, dest_, WfmLibGetErr());
  LogError(201, "Invalid path:%s, reason=[%d]", out_.destFolder.c_str(), WfmLibGetErr());
  return false;
}

std::optional<EarlyLook> Validation::LookEarly(const std::string& source) const {
  EarlyLook look;
  const bool local = source.starts_with('/');
  if (!local || !PathInfoFactory::create(user_.c_str(), source, look.info)) return std::nullopt;
  look.nameIsFree = out_.overwriteMode == CONFLICT_ERROR && NameIsFree(look.info);
  return look;
}

bool Validation::CheckSource(const std::string& source, std::optional<EarlyLook> early,
                             PathInfo& info) {
  if (!OpenSourceMount(source)) return false;
  if (early) {
    info = std::move(early->info);
  } else if (!PathInfoFactory::create(user_.c_str(), source, info)) {
    return RefusePath(failed_, source, WfmLibGetErr());
  }
  const bool nameIsFree = early && early->nameIsFree;
  return CheckSharePrivileges(info) && CheckDestinationWritable(info) &&
         (nameIsFree || CheckConflict(info));
}

// Only the first remote path of a request opens the mounts.
bool Validation::OpenSourceMount(const std::string& source) {
  if (vfsReady_ || !WfmLibIsVFSSharePath(source.c_str())) return true;
  (void)TAVOVFS::InitGlobal(UserId(), false);
  out_.srcIsVfs = true;
  if (!TAVOVFS::Utils::GetProtocol(source.c_str(), out_.srcProtocol)) {
    return Refuse(WEBFM_FAILED);
  }
  vfsReady_ = true;
  return true;
}

bool Validation::CheckSharePrivileges(const PathInfo& info) {
  if (!checkedShares_.insert(info.share).second) return true;
  if (IsDirUserHome(info.share.c_str(), nullptr)) return true;
  Privileges privileges;
  if (QueryPrivileges(info.sharePath, privileges) != 0) {
    RefusePath(failed_, info.sharePath, WfmLibGetErr());
    LogError(228, "Failed to get privilege of %s at %s, reason=[%d]", user_.c_str(),
             info.sharePath.c_str(), WfmLibGetErr());
    return false;
  }
  return MayTakeFrom(privileges) || RefusePath(failed_, info.sharePath, WEBFM_NO_PERMISSION);
}

bool Validation::MayTakeFrom(const Privileges& privileges) const {
  if ((privileges.flags & kFlagNoRead) != 0) return false;
  if (action_ == ACTION_COPY) return privileges.type != kPrivilegeNone;
  if (action_ != ACTION_MOVE) return true;
  return privileges.type == kPrivilegeReadWrite && (privileges.flags & kFlagNoDelete) == 0;
}

// Asked once, for the first source that exists.
bool Validation::CheckDestinationWritable(const PathInfo& info) {
  if (destWritableChecked_ || out_.destIsVfs || VLIBCFileExist(info.realPath.c_str()) == 0) {
    return true;
  }
  if (ACLAccess(out_.destFolder.c_str(), kWriteAccess) != 0) {
    LogError(244, "Failed to access destpath = %s, reason=%d, %s", out_.destFolder.c_str(),
             WfmLibGetErr(), std::strerror(errno));
    return RefusePath(WEBFM_DEST_FAILED, dest_, WfmLibGetErr());
  }
  destWritableChecked_ = true;
  return true;
}

bool Validation::NameIsFree(const PathInfo& info) const {
  std::array<char, kLongestPath + 1> candidate{};
  (void)std::snprintf(candidate.data(), candidate.size(), "%s/%s", out_.destFolder.c_str(),
                      LastComponent(info.realPath).c_str());
  return access(candidate.data(), F_OK) != 0;
}

bool Validation::CheckConflict(const PathInfo& info) {
  if (out_.overwriteMode != CONFLICT_ERROR || NameIsFree(info)) return true;
  LogError(253, "Invalid path:%s, reason=[%d], %s", info.realPath.c_str(), WEBFM_CONFLICT,
           std::strerror(errno));
  return RefusePath(failed_, info.sharePath, WEBFM_CONFLICT);
}

}  // namespace

bool FennoxMVCPHandler::PreProcessAndCheck(Json::Value& sourcePaths, std::string& destFolder,
                                           std::vector<PathInfo>& srcPathInfos,
                                           _tag_action_type_ actionType, std::string& destParam,
                                           int& overwriteMode, bool& srcIsVfs, bool& destIsVfs,
                                           std::string& destCodePage, std::string& srcProtocol,
                                           std::string& destProtocol) {
  Validation validation(*this, actionType,
                        {destFolder, destParam, overwriteMode, srcIsVfs, destIsVfs, destCodePage,
                         srcProtocol, destProtocol});
  destIsVfs = false;
  srcIsVfs = false;
  if (sourcePaths.empty()) {
    SetError(WEBFM_BAD_PARAMETER);
    return false;
  }
  if (!validation.CheckUser() || !validation.CheckDestination()) return false;
  const Json::Value& sources = sourcePaths;
  core::FromBehind<EarlyLook> early(destIsVfs ? 0 : sources.size(), [&](std::size_t i) {
    return validation.LookEarly(TextOf(sources[static_cast<Json::ArrayIndex>(i)]));
  });
  srcPathInfos.reserve(sources.size());
  for (const Json::Value& source : sources) {
    PathInfo info;
    if (!validation.CheckSource(TextOf(source), early.Take(srcPathInfos.size()), info))
      return false;
    srcPathInfos.push_back(std::move(info));
  }
  return true;
}

}  // namespace Fennox
