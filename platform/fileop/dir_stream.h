// Reading a folder entry by entry, in a bounded buffer.
#pragma once

#include <dirent.h>

#include <cstddef>
#include <string>
#include <vector>

#include "core/unique_fd.h"

namespace fileop {

// Does not own the descriptor, which must have been opened for reading.
class DirStream {
 public:
  struct Entry {
    const char* name;    // valid until the next call
    unsigned char type;  // DT_…, DT_UNKNOWN when the file system does not say
    ino_t inode;
  };

  DirStream() = default;

  // The next entry, "." and ".." left out. False at the end, with errno 0, and
  // on failure, with errno set.
  bool Next(int fd, Entry* entry);

  // Reads the first entries in, so that Next need not; what fails then fails again.
  void Prefetch(int fd);

  // The name of the next folder among the entries that are in memory; null when none is.
  const char* FolderInSight() const;

  // Starts again at the first entry, on a descriptor that is opened anew: a remote
  // folder that was read to its end may list nothing when it is only sought back. -1
  // with errno.
  [[nodiscard]] int Rewind(core::UniqueFd* fd);

  // Gives the buffer back; reading goes on after `name`, the latest entry, on a
  // descriptor of the same folder that was not read from yet. Positions are not
  // relied on: they may count entries that have been removed since. -1 with errno,
  // ENOENT when the entry is gone.
  void Suspend();
  [[nodiscard]] int Resume(int fd, const std::string& name);

 private:
  long Fill(int fd);
  std::size_t EntryAt(std::size_t at, Entry* entry) const;

  std::vector<char> buffer_;
  std::size_t at_ = 0;
  std::size_t filled_ = 0;
};

}  // namespace fileop
