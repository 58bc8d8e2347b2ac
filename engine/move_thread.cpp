#include "engine/move_thread.h"

#include <unistd.h>

#include "core/error.h"
#include "engine/move_rename.h"
#include "support/text.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"
#include "webapi/paths.h"

namespace Fennox {
namespace {

constexpr int kReplace = 1;
constexpr int kKeep = 0;
constexpr int kReport = -1;

std::string DestinationOf(const MOVE_THREAD_INFO& record, const std::string& source,
                          const ENTRY_STAT& entry) {
  std::string name;
  (void)WfmLibConv(name, LastComponent(source), entry.codePage, record.destCodePage);
  const std::string destination = record.destFolder + "/" + name;
  return entry.overwriteMode == CONFLICT_RENAME ? MVCPGenerateNewName(destination) : destination;
}

void ReportMoved(const std::string& source, const std::string& destination) {
  pthread_mutex_lock(&_moveMutex);
  MVCPUpdateProgress(MVCPGetDirSize(source.c_str(), destination.c_str()), 0);
  pthread_mutex_unlock(&_moveMutex);
}

int PolicyOf(const MOVE_THREAD_INFO& record, const ENTRY_STAT& entry) {
  if (entry.overwriteMode == CONFLICT_OVERWRITE) return kReplace;
  return entry.overwriteMode == CONFLICT_ERROR ? record.overwritePolicy : kKeep;
}

MoveResult RefuseConflict(int line) {
  VLIBCErrSetEx(core::kErrExists, kModuleName, line);
  return MOVE_FAILED;
}

MoveResult MoveFile(const MOVE_THREAD_INFO& record, const std::string& source,
                    const ENTRY_STAT& entry, const std::string& destination) {
  if (entry.destExists) {
    const int policy = PolicyOf(record, entry);
    if (policy == kReport) return RefuseConflict(1364);
    if (policy == kKeep) return MOVE_DONE;
  }
  const MoveResult result = RenameFile(source, destination);
  if (result == MOVE_DONE) ReportMoved(source, destination);
  return result;
}

MoveResult Move(const MOVE_THREAD_INFO& record, const std::string& source, const ENTRY_STAT& entry,
                const std::string& destination) {
  if (MVCPIsWithinPath(record.destFolder, source)) return RefuseConflict(1592);
  if (!record.isDirMap) return MoveFile(record, source, entry, destination);
  // A folder's conflict is the file system's answer to the rename.
  const MoveResult result = RenameFolder(source, destination);
  if (result == MOVE_DONE) ReportMoved(source, destination);
  return result;
}

void MoveEntry(MOVE_THREAD_INFO& record, const std::string& source, ENTRY_STAT& entry) {
  const std::string destination = DestinationOf(record, source, entry);
  entry.destExists = access(destination.c_str(), F_OK) == 0;
  if (entry.destExists) ++record.existCount;
  if (entry.error != 0) {
    entry.result = MOVE_FAILED;
    return;
  }
  entry.result = Move(record, source, entry, destination);
  if (entry.result == MOVE_FAILED) {
    entry.error = MVCPParseCopyError(source.c_str(), destination.c_str(), record.destParam.c_str(),
                                     record.destFolder.c_str());
  }
}

}  // namespace

void* MVCPMoveThread(void* argument) {
  auto& record = *static_cast<MOVE_THREAD_INFO*>(argument);
  for (auto& [source, entry] : record.entries) {
    MoveEntry(record, source, entry);
    if (_cancelRequested != 0) break;
  }
  return nullptr;
}

}  // namespace Fennox
