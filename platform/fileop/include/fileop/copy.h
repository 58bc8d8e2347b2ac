// The copiers: files, folders, descriptors.
//
// What they hold to, whatever happens:
//  1. a file has its final name only when it is complete, metadata included;
//  2. an existing file keeps its content until the new one is complete;
//  3. a move removes no source before its copy is on stable storage;
//  4. a failing file never stops its tree; its source stays, and the first
//     failure is the tree's result. A full or lost destination stops at once;
//  5. nothing follows a symbolic link inside a tree;
//  6. hard links inside a tree, holes, sub-second times, ACLs and extended
//     attributes are kept; the owner on a move, the user's own on a copy;
//  7. folders merge, the conflict policy applies to files;
//  8. no component of a given path may be a symbolic link;
//  9. a copy that ends short of its source's size is an error.
//
// On failure every function returns a negative value and sets the last error;
// errno is what the failed operation left. Callable from one thread at a time.
#pragma once

#include <cstdint>

struct _TAVOCOPYARGSEX;

using TAVOCopyProgress = int (*)(unsigned long long bytes, unsigned long long);
using TAVOCopyCancel = int (*)();
using TAVOCopyNewName = int (*)(const char* path, char* buffer, int size);

// What a copier does with one top-level path.
struct TAVOCOPYOPTIONS {
  // 1 replaces an existing file, 0 leaves it in place (success), -1 reports it
  // (kErrExists).
  std::int32_t conflictPolicy;
  std::int32_t moveFlag;          // 1: a move; the source's owner is kept
  std::int32_t keepMetadata;      // 1: modes, times, attributes and ACLs are copied
  std::int32_t removeSourceFlag;  // 1: sources are removed once their copy is safe
  // Bytes moved since the last call; called on the calling thread, at least
  // every 8 MiB and ten times a second. Its result is not looked at. May be null.
  TAVOCopyProgress progress;
  // Non-zero stops the copy; asked as often as progress. May be null.
  TAVOCopyCancel isCancelled;
  // When set, a conflicting file inside a merged folder gets a free name
  // instead of being skipped. May be null.
  TAVOCopyNewName newName;
  std::int32_t userId;  // owner of what a copy makes; used as root only
  std::int32_t groupId;
};

// Hooks. All run on the thread that called the copier, in the order of the
// files, with paths that exist under that name at the time of the call.

// Asked before each read with the bytes about to be read (0: as many as the
// progress callback was last told); answers how many may be read now, 0 to try
// again shortly, negative to abort.
using TAVOReadSizeHook = long long (*)(unsigned long long bytes);

// Moves one file's data. `src` is the source's path, `dst` the path under which
// the unfinished file stands now; on a remote mount the final path instead, though
// the descriptor is that of a temporary file. The descriptors are open; the hook may
// close them and set them to -1, which on a remote mount says that the file is at its
// final path already. A file that streams (TAVOStreamsHook) has no descriptor at the
// destination: it is -1. 0 on success; negative fails the file.
using TAVOReadWriteHook = int (*)(const char* src, const char* dst, int* srcFd, int* dstFd,
                                  long size, TAVOCopyProgress progress, TAVOCopyCancel cancel,
                                  const _TAVOCOPYARGSEX* args);

// Whether the data hook will bring this file to its final path on a remote mount past
// the mount: non-zero when it will. Nothing is made on the mount then: what is opened
// and closed there without a byte may reach the server any time later, and be taken for
// the file. Asked again when the data hook has failed; 0 then makes the copier try once more,
// with a descriptor.
using TAVOStreamsHook = int (*)(const char* src, const char* dst, long size);

// Copies one regular file in the copier's place, usually by calling
// TAVOCopyFileExI with the same arguments. `dst` is the path the file shall
// have in its folder; a folder that is new may stand under a temporary name
// then, and a file that replaces another keeps a temporary name of its own until
// its data is on disk, which may be after the hook. The file-system types are -1 when unknown.
// `pass` belongs to the copier and is handed on as it is. 0 on success; negative fails the file.
using TAVOCopyFileHook = int (*)(const char* src, const char* dst, TAVOCOPYOPTIONS* options,
                                 int srcFsType, int dstFsType, int flags, void* pass);

// Carries one companion file ("@eaDir/NAME…" beside a top-level file or folder
// NAME) to `dst`, a temporary name in the destination's own companion folder.
// In a move it takes the source away. Its result is not looked at.
using TAVOCopyEAHook = int (*)(const char* src, const char* dst);

// Size in bytes of an entry that was moved by rename, for progress: the path it
// had and the path it has.
using TAVODirSizeHook = unsigned long long (*)(const char* sourcePath, const char* currentPath);

// A handle with hooks; all unset at first. Null when there is no memory.
// Freeing it finishes what is still owed: sources of a move across volumes whose
// removal waits for one common sync are removed then. A source that cannot be
// removed any more, or has changed since it was copied, stays and is logged.
_TAVOCOPYARGSEX* TAVOCopyArgsExAlloc();
void TAVOCopyArgsExFree(_TAVOCOPYARGSEX* args);
void TAVOCopyArgsExSetGetReadSize(_TAVOCOPYARGSEX* args, TAVOReadSizeHook hook);
void TAVOCopyArgsExSetReadWriteData(_TAVOCOPYARGSEX* args, TAVOReadWriteHook hook);
void TAVOCopyArgsExSetStreams(_TAVOCOPYARGSEX* args, TAVOStreamsHook hook);
void TAVOCopyArgsExSetCopyFile(_TAVOCOPYARGSEX* args, TAVOCopyFileHook hook);
void TAVOCopyArgsExSetCopyEA(_TAVOCOPYARGSEX* args, TAVOCopyEAHook hook);
void TAVOCopyArgsExSetGetDirSize(_TAVOCOPYARGSEX* args, TAVODirSizeHook hook);

// Copies or moves one file (or link, or special file) or one folder with all
// below it. Both paths are absolute and canonical; `dst` is the final path of
// the entry itself. A move within one volume is a rename. A stop leaves only
// whole files, and returns negative with errno ECANCELED.
[[nodiscard]] int TAVOFileCopyEx(const char* src, const char* dst, TAVOCOPYOPTIONS* options,
                                 _TAVOCOPYARGSEX* args);
[[nodiscard]] int TAVOFileCopyDirectoryEx(const char* src, const char* dst,
                                          TAVOCOPYOPTIONS* options, _TAVOCOPYARGSEX* args);

// The plain copy of one regular file, as a per-file hook calls it: `flags` and
// `pass` are what the hook was given. Without a hook's `pass` it stands alone.
[[nodiscard]] int TAVOCopyFileExI(const char* src, const char* dst, TAVOCOPYOPTIONS* options,
                                  int srcFsType, int dstFsType, int flags, void* pass);

// Moves data between two open descriptors, from their current offsets: `size`
// bytes are expected and more or fewer at the end of the source is what counts
// (short is an error). Holes stay holes where both sides can seek. `args` (may
// be null) gives the read-size hook.
[[nodiscard]] int TAVOCopyFileFdEx(int srcFd, int dstFd, long size, TAVOCopyProgress progress,
                                   TAVOCopyCancel cancel, const _TAVOCOPYARGSEX* args);

// Non-zero when the pair of paths may be copied by sharing blocks: one file
// system that can. Takes a per-file hook's own arguments. Remembered per pair of
// file systems.
int TAVOFileCopyReflinkIsEnabled(const char* src, const char* dst, TAVOCOPYOPTIONS* options,
                                 int srcFsType, int dstFsType, int flags, void* pass);

// Copies one regular file by sharing its blocks; falls back to moving the data
// when the file system refuses this one file.
[[nodiscard]] int TAVOFileReflinkCopy(const char* src, const char* dst, TAVOCOPYOPTIONS* options,
                                      _TAVOCOPYARGSEX* args);

// A free name beside `path`: "name (1).ext", "name (2).ext" and so on, never
// longer than the file system's limit. 0 on success; negative when the buffer
// is too small or 10000 names are taken.
int Default_GenerateNewName(const char* path, char* buffer, int size);
