// One file's data on its way between two places.
#pragma once

#include <string>

#include "fileop/copy.h"

namespace Fennox {

// One end of a transfer.
struct TransferSide {
  bool isVfs = false;
  bool useCurl = false;    // data streams through the cloud library
  std::string protocol;    // empty when not remote
  std::string remotePath;  // the file on its server
  bool isFtpLike() const { return protocol == "ftp" || protocol == "ftps"; }
};

// What the copier asked for, and what is known of both ends.
struct TransferJob {
  const char* src;
  const char* dst;
  // The copier's descriptors, null in an extended-attribute call. Closed ones
  // hold -1.
  int* srcFd;
  int* dstFd;
  long size;  // bytes
  TAVOCopyProgress progress;
  TAVOCopyCancel cancel;
  const _TAVOCOPYARGSEX* args;
  bool eaCall;

  TransferSide source;
  TransferSide dest;
  bool singleConnection = false;  // a server takes one connection only
  bool descriptorsMoved = false;  // a transfer on them has begun

  bool hasDescriptors() const { return srcFd != nullptr && dstFd != nullptr; }
};

}  // namespace Fennox
