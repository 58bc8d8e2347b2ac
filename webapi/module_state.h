// All process-wide state of the module, in one place. Nothing here is locked:
// one process serves one request, and a worker is a process of its own.
#pragma once

#include <json/value.h>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cloud/cloud.h"
#include "cloud/read_ahead.h"
#include "core/from_behind.h"
#include "fileop/copy.h"
#include "prepare/entry_records.h"
#include "tasks/task.h"
#include "webapi/export.h"
#include "webapi/source_look.h"

// Exported under these names. C linkage keeps their types out of the symbols.
extern "C" {
FENNOX_EXPORT extern std::map<std::string, COPY_PARM> _mapCopyParam;  // by remote base path
FENNOX_EXPORT extern COPY_PARM _destCopyParam;
}

namespace Fennox {

// Record of the task in hand; deleted by the handler's destructor.
extern KVX::Task* _task;
// The record's "data" as the worker found it, to repair a lost one.
extern Json::Value _taskDataSnapshot;

extern std::vector<PathInfo> _srcPathInfos;
extern PathInfo _destPathInfo;

// What the worker's entry maps need to know of the sources, asked for while the worker waits
// for its record. Null where everything is looked at in its turn.
extern std::unique_ptr<core::FromBehind<SourceLook>> _sourceLooks;

// Bytes of each top-level source, by real path; filled under accurate progress.
extern std::map<std::string, unsigned long long> _dirSizeCache;

extern std::string _processingPath;
extern bool _accurateProgress;
extern bool _notStarted;
extern bool _hadFailure;

// Set to 1 by the worker's signal handler, never reset.
extern std::atomic<int> _cancelRequested;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes it");

// Progress counters. _totalAmount is bytes under accurate progress, else entries.
extern std::uint64_t _processedBytes;
extern std::uint64_t _lastChunkBytes;
extern std::uint64_t _totalAmount;
extern std::uint64_t _processedNum;
extern std::int64_t _lastWriteTime;
extern std::uint64_t _bytesAtLastWrite;
extern timespec _lastRateClock;
extern std::uint64_t _foundDirNum;
extern std::uint64_t _foundFileNum;
extern std::uint64_t _foundFileSize;

// Copier set-up of the running action loop.
extern TAVOCOPYOPTIONS _copyOptions;
extern _TAVOCOPYARGSEX* _copyArgs;
extern int _destFsType;
extern int _srcFsType;

// Made on first need, deleted at the worker's end.
extern TAVOCloud::Cloud* _srcCloud;
extern TAVOCloud::Cloud* _destCloud;
// Reads the small files of an FTP source before their turn; of the server with this id.
extern std::shared_ptr<TAVOCloud::ReadAhead> _readAhead;
extern std::string _readAheadServer;

// The destination that the copier was last told to be streamed to (empty: none), and
// whether its server then had no connection left for that.
extern std::string _streamedPath;
extern bool _streamRefused;
// Whether the destination's mount has said that it takes no mark of a stale cache.
extern bool _mountTakesNoMarks;

}  // namespace Fennox
