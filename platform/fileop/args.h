// The copy-arguments handle.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "companions.h"
#include "fileop/copy.h"
#include "folder.h"
#include "removal.h"

struct _TAVOCOPYARGSEX {
  TAVOReadSizeHook read_size = nullptr;
  TAVOReadWriteHook read_write = nullptr;
  TAVOCopyFileHook copy_file = nullptr;
  TAVOCopyEAHook copy_ea = nullptr;
  TAVODirSizeHook dir_size = nullptr;

  // Single files moved across volumes whose sources still stand.
  fileop::RemovalBatch removals;
  // The destination folder that was last looked through for leftovers.
  fileop::Identity cleaned;
  fileop::CompanionIndex companions;
};
