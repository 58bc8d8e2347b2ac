#include "engine/action_loop.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>

#include "core/error.h"
#include "support/text.h"
#include "webapi/behind_calls.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"
#include "webapi/paths.h"

namespace Fennox {
namespace {

// The copier's policy for a conflict mode of the request.
int PolicyOf(int overwriteMode) {
  switch (overwriteMode) {
    case CONFLICT_OVERWRITE:
      return 1;
    case CONFLICT_SKIP:
    case CONFLICT_RENAME:
      return 0;
    default:
      return -1;
  }
}

}  // namespace

ActionLoop::CopyArgsOwner::~CopyArgsOwner() {
  if (_copyArgs != nullptr) TAVOCopyArgsExFree(_copyArgs);
  _copyArgs = nullptr;
}

ActionLoop::ActionLoop(FennoxMVCPHandler& handler, const ActionOrder& order)
    : handler_(handler),
      order_(order),
      login_(handler.apiRequest()->GetLoginUserName()),
      indexes_(login_.c_str()) {}

std::int64_t ActionLoop::Run(EntryMap& entries) {
  if (!SetUp()) return -1;
  if (CanMoveInThreads(entries)) {
    MoveInThreads(entries);
    if (_cancelRequested != 0) return -1;
  }
  return CopyAll(entries) ? conflicts_ : -1;
}

bool ActionLoop::SetUp() {
  if (order_.destSharePath.empty()) {
    if (!handler_.MVCPUpdateFailFile(order_.actionType, "", WEBFM_FAILED, "")) {
      LogError(1737, "MVCPUpdateFailFile error");
    }
    return false;
  }
  FillOptions();
  MakeCopyArgs();
  if (!TakeUser()) return false;
  transferLog_ =
      strcasecmp(handler_.settings().Info("filebrowserxferlog", "no").c_str(), "yes") == 0;
  search_ = FindSearchTask(handler_, order_.destSharePath, indexes_);
  return true;
}

void ActionLoop::FillOptions() const {
  const bool isMove = order_.actionType == ACTION_MOVE;
  _copyOptions = TAVOCOPYOPTIONS{};
  _copyOptions.conflictPolicy = PolicyOf(order_.overwriteMode);
  _copyOptions.moveFlag = isMove ? 1 : 0;
  _copyOptions.keepMetadata = 1;
  _copyOptions.removeSourceFlag = isMove ? 1 : 0;
  _copyOptions.isCancelled = MVCPIsCancelled;
  if (_accurateProgress) _copyOptions.progress = MVCPUpdateProgress;
  if (order_.overwriteMode == CONFLICT_RENAME) _copyOptions.newName = Default_GenerateNewName;
}

void ActionLoop::MakeCopyArgs() const {
  _copyArgs = TAVOCopyArgsExAlloc();
  TAVOCopyArgsExSetGetReadSize(_copyArgs, MVCPTransferCallback);
  TAVOCopyArgsExSetReadWriteData(_copyArgs, MVCPReadWriteData);
  TAVOCopyArgsExSetStreams(_copyArgs, MVCPStreamsCallback);
  TAVOCopyArgsExSetBehind(_copyArgs, kBehindHooks);
  TAVOCopyArgsExSetCopyFile(_copyArgs, MVCPCopyFileCallback);
  TAVOCopyArgsExSetCopyEA(_copyArgs, MVCPReadWriteDataCallback);
  TAVOCopyArgsExSetGetDirSize(_copyArgs, MVCPGetDirSizeCallback);
}

bool ActionLoop::TakeUser() {
  TAVOUSER* user = nullptr;
  const bool known = TAVOUserGet(login_.c_str(), &user) == 0;
  user_.reset(user);
  if (known) {
    _copyOptions.userId = static_cast<std::int32_t>(user->uid);
    _copyOptions.groupId = static_cast<std::int32_t>(user->gid);
    return true;
  }
  const int code =
      WfmParseTavoErrToError(VLIBCErrGet(), order_.destParam.c_str(), order_.destFolder.c_str());
  if (!handler_.MVCPUpdateFailFile(order_.actionType, "", static_cast<WEBFMERR>(code),
                                   order_.destParam.c_str())) {
    LogError(1767, "MVCPUpdateFailFile error");
  } else {
    LogError(1770, "Failed to get user data, %s", login_.c_str());
  }
  return false;
}

bool ActionLoop::CanMoveInThreads(const EntryMap& entries) const {
  const std::string& destination = order_.destSharePath;
  if (order_.actionType != ACTION_MOVE || !WfmLibIsVFSSharePath(destination.c_str()) ||
      entries.size() < 2) {
    return false;
  }
  const std::string server = WfmLibGetVFSServerIDFromURI(entries.begin()->second.sharePath.c_str());
  if (server.empty() || !destination.starts_with(server)) return false;
  return std::all_of(entries.begin(), entries.end(), [&](const EntryMap::value_type& entry) {
    const std::string& path = entry.second.sharePath;
    return WfmLibIsVFSSharePath(path.c_str()) && path.starts_with(server);
  });
}

void ActionLoop::MoveInThreads(EntryMap& entries) {
  MOVE_THREAD_INFO records[2];
  MoveThreadMain(records, entries, order_.destFolder, order_.destCodePage, order_.destParam,
                 _copyOptions.conflictPolicy, order_.isDirMap);
  entries.clear();
  for (MOVE_THREAD_INFO& record : records) {
    TakeBack(record, entries);
    conflicts_ += static_cast<std::int64_t>(record.existCount);
  }
}

void ActionLoop::TakeBack(MOVE_THREAD_INFO& record, EntryMap& entries) {
  for (auto entry = record.entries.begin(); entry != record.entries.end(); ++entry) {
    Place(*entry);
    const ENTRY_STAT& outcome = entry->second;
    if (outcome.result == MOVE_MUST_COPY) {
      entries.insert(*entry);
    } else if (outcome.result >= MOVE_FAILED) {
      PostProcess(entry, outcome.error, outcome.destExists);
    }
  }
}

// Makes `entry` the one in hand.
void ActionLoop::Place(const EntryMap::value_type& entry) {
  const auto& [source, record] = entry;
  _processingPath = record.sharePath;
  std::string name;
  (void)WfmLibConv(name, LastComponent(source), record.codePage, order_.destCodePage);
  destPath_ = order_.destFolder + "/" + name;
  if (record.overwriteMode == CONFLICT_RENAME) destPath_ = MVCPGenerateNewName(destPath_);
}

// False when the task was stopped; the entry in hand is not post-processed then.
bool ActionLoop::CopyAll(EntryMap& entries) {
  for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
    _processingPath = entry->second.sharePath;
    MVCPUpdateProgress(0, 0);
    Place(*entry);
    const bool destExisted = access(destPath_.c_str(), F_OK) == 0;
    if (destExisted) ++conflicts_;
    // An entry without a mode of its own runs under the policy that is in force.
    const int mode = entry->second.overwriteMode;
    if (mode != CONFLICT_ERROR) {
      _copyOptions.conflictPolicy = mode == CONFLICT_OVERWRITE ? 1 : 0;
    }
    const int error = entry->second.error != 0 ? entry->second.error : CopyOne(*entry);
    if (_cancelRequested != 0) return false;
    PostProcess(entry, error, destExisted);
  }
  return true;
}

int ActionLoop::CopyOne(const EntryMap::value_type& entry) const {
  const std::string& source = entry.first;
  if (MVCPIsWithinPath(order_.destFolder, source)) {
    VLIBCErrSetEx(core::kErrExists, kModuleName, 1877);
    return FailureCode(source);
  }
  const auto copy = order_.isDirMap ? TAVOFileCopyDirectoryEx : TAVOFileCopyEx;
  const int result = copy(source.c_str(), destPath_.c_str(), &_copyOptions, _copyArgs);
  return result == 0 ? WEBFM_OK : FailureCode(source);
}

int ActionLoop::FailureCode(const std::string& source) const {
  return MVCPParseCopyError(source.c_str(), destPath_.c_str(), order_.destParam.c_str(),
                            order_.destFolder.c_str());
}

void ActionLoop::PostProcess(EntryMap::iterator entry, int error, bool destExisted) {
  handler_.postMVCP(entry, order_.actionType, order_.overwriteMode, order_.isDirMap,
                    static_cast<WEBFMERR>(error), entry->first.c_str(), _processingPath.c_str(),
                    order_.destSharePath.c_str(), order_.destParam.c_str(), destPath_.c_str(),
                    transferLog_, search_.destInScope, destExisted, search_.index.get());
}

std::int64_t FennoxMVCPHandler::WebFMMVCPAction(EntryMap& entries, const std::string& destFolder,
                                                bool isDirMap, int overwriteMode,
                                                _tag_action_type_ actionType,
                                                const std::string& destParam,
                                                const std::string& destCodePage) {
  return ActionLoop(*this, {destSharePath, destFolder, isDirMap, overwriteMode, actionType,
                            destParam, destCodePage})
      .Run(entries);
}

}  // namespace Fennox
