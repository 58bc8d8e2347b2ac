// Small questions about files.
#pragma once

#include <sys/stat.h>

// Stat record handed between the libraries.
struct TAVOSTAT {
  struct stat st;
};

// Parts of a record to fill, for VLIBCFileLStat.
enum : int {
  kStatBasic = 1,  // type, size, mode and times
  kStatOwner = 8,  // owner ids
};

// Non-zero when the path exists (a dangling link exists).
int VLIBCFileExist(const char* path);

// lstat into *out; fields that `flags` does not ask for are zero. 0 on success,
// negative on failure with errno and the last error set.
int VLIBCFileLStat(const char* path, int flags, TAVOSTAT* out);

// Sum of the sizes in bytes of all regular files at or below `path`, hidden
// ones included, links not followed. 0 when the path cannot be read.
unsigned long long VLIBGetFullDirSize(const char* path);
