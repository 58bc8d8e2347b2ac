// Free functions by which the module's folders call one another; each is
// implemented by the folder that its section names.
#pragma once

#include <json/value.h>
#include <map>
#include <string>

#include "fileop/copy.h"
#include "prepare/entry_records.h"
#include "webapi/export.h"

namespace Fennox {

// task/: adds bytes to the counters and, at most once every five seconds,
// writes progress into the record. 0, or -1 when the record's data is lost.
int MVCPUpdateProgress(unsigned long long bytes, unsigned long long unused);

// task/: reloads the record in hand and reads its "data", an object. Lost data
// is written back from the snapshot. False when there is nothing to go on with;
// logged under `number` unless a stop was asked for, whose record goes away.
[[nodiscard]] bool LoadTaskData(int number, Json::Value& data);

// prepare/: bytes of the regular files below a folder, links followed, hidden
// names left out; adds what it finds to the found counters. 0 with the last
// error set when the folder cannot be entered.
long long MVCPScanDirectory(const char* path);

// engine/: the cancel check of the copier.
int MVCPIsCancelled();
// engine/: web-API code for the last core error and errno of a failed entry.
int MVCPParseCopyError(const char* srcPath, const char* destPath, const char* destParam,
                       const char* destFolder);
bool MVCPIsWithinPath(const std::string& path, const std::string& base);
std::string MVCPGenerateNewName(const std::string& path);

// transfer/: hooks of the copier (see fileop/copy.h for their contracts).
long long MVCPTransferCallback(unsigned long long bytes);
int MVCPStreamsCallback(const char* src, const char* dst, long size);
int MVCPCopyFileCallback(const char* src, const char* dst, TAVOCOPYOPTIONS* options, int srcFsType,
                         int dstFsType, int flags, void* pass);
int MVCPReadWriteDataCallback(const char* src, const char* dst);
unsigned long long MVCPGetDirSizeCallback(const char* sourcePath, const char* currentPath);
// transfer/: size of a top-level entry, from the cache or measured at its
// current path.
unsigned long long MVCPGetDirSize(const char* sourcePath, const char* currentPath);
// transfer/: copies a file through two descriptors; a failed copy leaves no file.
int MVCPCopyFileFd(const char* src, const char* dst, long size, TAVOCopyProgress progress,
                   TAVOCopyCancel cancel, const _TAVOCOPYARGSEX* args);

}  // namespace Fennox

// Exported under these names.
extern "C" {

// transfer/: moves one file's data between local, remote and cloud paths.
FENNOX_EXPORT int MVCPReadWriteData(const char* src, const char* dst, int* srcFd, int* dstFd,
                                    long size, TAVOCopyProgress progress, TAVOCopyCancel cancel,
                                    const _TAVOCOPYARGSEX* args);
FENNOX_EXPORT int MVCPReadWriteDataEx(const char* src, const char* dst, int* srcFd, int* dstFd,
                                      long size, TAVOCopyProgress progress, TAVOCopyCancel cancel,
                                      const _TAVOCOPYARGSEX* args, bool eaCall);

// engine/: moves `entries` by rename in two threads; returns when both ended.
FENNOX_EXPORT int MoveThreadMain(MOVE_THREAD_INFO (&records)[2],
                                 std::map<std::string, Fennox::ENTRY_STAT>& entries,
                                 const std::string& destFolder, const std::string& destCodePage,
                                 const std::string& destParam, int overwritePolicy, bool isDirMap);
}
