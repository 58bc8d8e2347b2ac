// Small files that stream, to a server or from it, and are still on their way when the data hook
// has returned.
#pragma once

#include <cstdint>
#include <memory>

struct _TAVOCOPYARGSEX;

// The small files of one folder, read before their turn past the mount that shows them.
class TAVOAHEADSOURCE {
 public:
  virtual ~TAVOAHEADSOURCE() = default;
  // Writes the whole file, `size` bytes, into `fd`. False: it is to be read through the mount.
  // Several threads call it at a time.
  [[nodiscard]] virtual bool Read(const char* name, int fd, std::uint64_t size) = 0;
  // The mount lacks connections: those for reading past it are closed.
  virtual void GiveUp() = 0;
};

// A tree's copier uses them for small files: new ones on a remote mount, and those that it fetches
// from one (`fetch` 1). All run on its thread, in the order of the files.
struct TAVOBEHINDHOOKS {
  // Whether the data hook brings files of this size, in bytes, from the folder `src` on a remote
  // mount to the local folder `dst` without their descriptor, past the mount: non-zero when it
  // does. They are not opened then: the hook is given -1.
  int (*fetches)(const char* src, const char* dst, long size);
  // Called before the data hook: it may leave the file behind.
  void (*letNext)(int fetch);
  // After the data hook has answered 0: the number of the file that it has left behind, whose
  // descriptors nobody may move meanwhile; 0 for none.
  unsigned long long (*last)(int fetch);
  // Waits for it, once for each number. 0: all of its data is there; what was sent is at its place
  // `dst`, with the time of its source as far as its server keeps one. Negative: it is not, for
  // whatever reason; the copier then calls the data hook for it once more, without leave.
  int (*await)(int fetch, const char* dst, unsigned long long number);
  // For the folder `src` on a remote mount whose small files the data hook is given open: how
  // to read them past the mount. Null when there is no such way.
  std::unique_ptr<TAVOAHEADSOURCE> (*ahead)(const char* src) = nullptr;
};

void TAVOCopyArgsExSetBehind(_TAVOCOPYARGSEX* args, const TAVOBEHINDHOOKS& hooks);
