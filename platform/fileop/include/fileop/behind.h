// Files that stream and are still on their way to their server when the data hook has returned.
#pragma once

struct _TAVOCOPYARGSEX;

// A tree's copier uses them for small new files on a remote mount. All run on its thread, in the
// order of the files.
struct TAVOBEHINDHOOKS {
  // Called before the data hook: it may leave the file behind.
  void (*letNext)();
  // After the data hook has answered 0: the number of the file that it has left behind, which
  // nobody may read meanwhile; 0 for none.
  unsigned long long (*last)();
  // Waits for it, once for each number. 0: it is at its place `dst`, whole, with the time of its
  // source as far as its server keeps one. Negative: it is not, for whatever reason; the copier
  // then calls the data hook for it once more, without leave.
  int (*await)(const char* dst, unsigned long long number);
};

void TAVOCopyArgsExSetBehind(_TAVOCOPYARGSEX* args, const TAVOBEHINDHOOKS& hooks);
