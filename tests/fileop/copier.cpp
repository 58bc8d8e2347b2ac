#include "copier.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "core/error.h"

namespace fileop_test {
namespace {

Copier* active = nullptr;

int Progress(unsigned long long bytes, unsigned long long) {
  active->progress += bytes;
  active->largest_step = std::max(active->largest_step, bytes);
  return 0;
}

int IsCancelled() { return active->on_cancel_check && active->on_cancel_check() ? 1 : 0; }

long long ReadSize(unsigned long long bytes) {
  return active->on_read_size ? active->on_read_size(bytes) : static_cast<long long>(bytes);
}

int Data(const char* src, const char* dst, int* src_fd, int* dst_fd, long size,
         TAVOCopyProgress progress, TAVOCopyCancel cancel, const _TAVOCOPYARGSEX* args) {
  if (active->on_data) {
    const int result = active->on_data(src, dst, src_fd, dst_fd);
    if (result <= 0) return result;
  }
  return TAVOCopyFileFdEx(*src_fd, *dst_fd, size, progress, cancel, args);
}

int Companion(const char* src, const char* dst) {
  if (active->on_companion) active->on_companion(src, dst);
  return 0;
}

unsigned long long DirSize(const char* src, const char* dst) {
  return active->on_dir_size ? active->on_dir_size(src, dst) : 0;
}

int File(const char* src, const char* dst, TAVOCOPYOPTIONS* options, int src_type, int dst_type,
         int flags, void* pass) {
  if (active->on_file) {
    const int result = active->on_file(src, dst, pass);
    if (result <= 0) return result;
  }
  if (!active->reflink ||
      TAVOFileCopyReflinkIsEnabled(src, dst, options, src_type, dst_type, flags, pass) == 0) {
    return TAVOCopyFileExI(src, dst, options, src_type, dst_type, 1, pass);
  }
  ++active->reflinked;
  _TAVOCOPYARGSEX* own = TAVOCopyArgsExAlloc();
  TAVOCopyArgsExSetGetReadSize(own, ReadSize);
  TAVOCopyArgsExSetReadWriteData(own, Data);
  const int result = TAVOFileReflinkCopy(src, dst, options, own);
  TAVOCopyArgsExFree(own);
  return result;
}

}  // namespace

Copier::Copier(Kind kind, int policy) : args(TAVOCopyArgsExAlloc()) {
  active = this;
  options.conflictPolicy = policy;
  options.moveFlag = options.removeSourceFlag = kind == Kind::kMove ? 1 : 0;
  options.keepMetadata = 1;
  options.progress = Progress;
  options.isCancelled = IsCancelled;
  options.userId = static_cast<int>(::geteuid());
  options.groupId = static_cast<int>(::getegid());
  TAVOCopyArgsExSetGetReadSize(args, ReadSize);
  TAVOCopyArgsExSetReadWriteData(args, Data);
  TAVOCopyArgsExSetCopyFile(args, fileop_test::File);
  TAVOCopyArgsExSetCopyEA(args, Companion);
  TAVOCopyArgsExSetGetDirSize(args, DirSize);
}

Copier::~Copier() {
  Free();
  active = nullptr;
}

void Copier::Free() {
  TAVOCopyArgsExFree(args);
  args = nullptr;
}

int Copier::Finish(int result) {
  error = result < 0 ? errno : 0;
  code = result < 0 ? VLIBCErrGet() : 0;
  return result;
}

int Copier::File(const std::string& src, const std::string& dst) {
  return Finish(TAVOFileCopyEx(src.c_str(), dst.c_str(), &options, args));
}

int Copier::Folder(const std::string& src, const std::string& dst) {
  return Finish(TAVOFileCopyDirectoryEx(src.c_str(), dst.c_str(), &options, args));
}

}  // namespace fileop_test
