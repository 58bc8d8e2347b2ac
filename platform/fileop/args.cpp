#include "args.h"

#include <cerrno>
#include <memory>
#include <new>

_TAVOCOPYARGSEX* TAVOCopyArgsExAlloc() { return new (std::nothrow) _TAVOCOPYARGSEX; }

void TAVOCopyArgsExFree(_TAVOCOPYARGSEX* args) {
  const std::unique_ptr<_TAVOCOPYARGSEX> owned(args);
  if (args == nullptr) return;
  const int saved = errno;
  (void)!args->removals.Flush(fileop::LogKept);
  errno = saved;
}

void TAVOCopyArgsExSetGetReadSize(_TAVOCOPYARGSEX* args, TAVOReadSizeHook hook) {
  args->read_size = hook;
}

void TAVOCopyArgsExSetReadWriteData(_TAVOCOPYARGSEX* args, TAVOReadWriteHook hook) {
  args->read_write = hook;
}

void TAVOCopyArgsExSetStreams(_TAVOCOPYARGSEX* args, TAVOStreamsHook hook) { args->streams = hook; }

void TAVOCopyArgsExSetBehind(_TAVOCOPYARGSEX* args, const TAVOBEHINDHOOKS& hooks) {
  args->behind = hooks;
}

void TAVOCopyArgsExSetCopyFile(_TAVOCOPYARGSEX* args, TAVOCopyFileHook hook) {
  args->copy_file = hook;
}

void TAVOCopyArgsExSetCopyEA(_TAVOCOPYARGSEX* args, TAVOCopyEAHook hook) { args->copy_ea = hook; }

void TAVOCopyArgsExSetGetDirSize(_TAVOCOPYARGSEX* args, TAVODirSizeHook hook) {
  args->dir_size = hook;
}
