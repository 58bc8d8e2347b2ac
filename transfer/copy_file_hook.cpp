// The per-file hook of the copier: refuses what a remote destination cannot
// take, and picks between sharing blocks and a plain copy.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "core/error.h"
#include "core/fs_type.h"
#include "support/path_info.h"
#include "transfer/cloud_objects.h"
#include "transfer/kept_error.h"
#include "vfs/vfs.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

constexpr int kCoreNoBaseUri = 0x8100;
constexpr int kCoreSingleConnection = 0xD900;

enum class Verdict { kCopy, kDone, kFail };

void RememberFsTypes(const char* src, int dstFsType) {
  if (dstFsType != core::kFsUnknown && _destFsType == core::kFsUnknown) _destFsType = dstFsType;
  if (_srcFsType == core::kFsUnknown) _srcFsType = TAVOGetFSType(src, 0);
}

// FAT sticks: once a side has shown it, every plain copy reckons with its limits.
int FsTypeToTell(int remembered, int reported) {
  return remembered == core::kFsFat ? core::kFsFat : reported;
}

// A server with one connection cannot read and write at the same time.
Verdict CheckConnections(const char* src, bool isMove) {
  std::string uri;
  if (!TAVOVFS::Utils::GetBaseURI(_processingPath.c_str(), uri, true)) {
    VLIBCErrSetEx(kCoreNoBaseUri, kModuleName, 1302);
    LogError(1303, "GetBaseURI fail, %s", src);
    return Verdict::kFail;
  }
  std::string codePage;
  int maxConnection = 0;
  (void)WfmLibGetVFSCodePageAndMaxConnection(uri.c_str(), TAVOVFS::GetActorUID(), codePage,
                                             maxConnection);
  if (!isMove && maxConnection == 1 && _destCloud != nullptr && _destCloud->GetServerID() == uri) {
    VLIBCErrSetEx(kCoreSingleConnection, kModuleName, 1310);
    return Verdict::kFail;
  }
  return Verdict::kCopy;
}

Verdict CheckSize(const char* src) {
  struct stat status {};
  if (stat(src, &status) != 0) {
    LogError(1320, "Failed to stat %s, code=%d, %s", src, errno, std::strerror(errno));
    VLIBCErrSetEx(core::kErrNotFound, kModuleName, 1321);
    return Verdict::kFail;
  }
  if (_destCloud == nullptr) return Verdict::kCopy;
  return _destCloud->IsAcceptedSize(static_cast<std::uint64_t>(status.st_size)) ? Verdict::kCopy
                                                                                : Verdict::kFail;
}

// Without an object for the destination's server nothing is known that would
// speak against the copy; the transfer itself will tell.
Verdict CheckRemoteDestination(const char* src, const char* dst, bool isMove) {
  if (_destCloud == nullptr) {
    _destCloud = TAVOCloud::Utils::CreateCloudByURI(TAVOVFS::GetActorUID(), _destPathInfo.mountUri,
                                                    kConfigMode);
  }
  if (_destCloud != nullptr && _destCloud->IsIgnoredPath(src)) return Verdict::kDone;
  if (WfmLibIsVFSFullPath(src)) {
    const Verdict verdict = CheckConnections(src, isMove);
    if (verdict != Verdict::kCopy) return verdict;
  }
  return WfmLibIsCloudVFSFullPath(dst) ? CheckSize(src) : Verdict::kCopy;
}

int ReflinkCopy(const char* src, const char* dst, TAVOCOPYOPTIONS* options) {
  _TAVOCOPYARGSEX* const args = TAVOCopyArgsExAlloc();
  if (args == nullptr) return -1;
  TAVOCopyArgsExSetGetReadSize(args, MVCPTransferCallback);
  TAVOCopyArgsExSetReadWriteData(args, MVCPReadWriteData);
  TAVOCopyArgsExSetCopyEA(args, MVCPReadWriteDataCallback);
  TAVOCopyArgsExSetGetDirSize(args, MVCPGetDirSizeCallback);
  const int result = TAVOFileReflinkCopy(src, dst, options, args);
  const KeptError keep;
  TAVOCopyArgsExFree(args);
  return result;
}

}  // namespace

int MVCPCopyFileCallback(const char* src, const char* dst, TAVOCOPYOPTIONS* options, int srcFsType,
                         int dstFsType, int flags, void* pass) {
  const bool reflink =
      TAVOFileCopyReflinkIsEnabled(src, dst, options, srcFsType, dstFsType, flags, pass) != 0;
  RememberFsTypes(src, dstFsType);
  if (WfmLibIsVFSFullPath(dst)) {
    const Verdict verdict = CheckRemoteDestination(src, dst, options->moveFlag != 0);
    if (verdict != Verdict::kCopy) return verdict == Verdict::kDone ? 0 : -1;
  }
  if (reflink) return ReflinkCopy(src, dst, options);
  return TAVOCopyFileExI(src, dst, options, FsTypeToTell(_srcFsType, srcFsType),
                         FsTypeToTell(_destFsType, dstFsType), 1, pass);
}

}  // namespace Fennox
