// The copy-arguments handle.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companions.h"
#include "ends.h"
#include "fileop/behind.h"
#include "fileop/copy.h"
#include "folder.h"
#include "removal.h"

struct _TAVOCOPYARGSEX {
  TAVOReadSizeHook read_size = nullptr;
  TAVOReadWriteHook read_write = nullptr;
  TAVOStreamsHook streams = nullptr;
  TAVOCopyFileHook copy_file = nullptr;
  TAVOCopyEAHook copy_ea = nullptr;
  TAVODirSizeHook dir_size = nullptr;
  std::optional<TAVOBEHINDHOOKS> behind;

  // Single files moved across volumes whose sources still stand.
  fileop::RemovalBatch removals;
  // The destination folder that was last looked through for leftovers.
  fileop::Identity cleaned;
  fileop::CompanionIndex companions;
  // The folders around the path that was carried last.
  fileop::Ends ends;
  std::optional<mode_t> mask;  // the process's umask, once it was asked for
};
