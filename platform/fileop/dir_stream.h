// Reading a folder entry by entry, in a bounded buffer.
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>
#include <vector>

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

  // Starts again at the first entry.
  [[nodiscard]] int Rewind(int fd);

  // Gives the buffer back; reading goes on after the latest entry, also on
  // another descriptor of the same folder.
  void Suspend();
  [[nodiscard]] int Resume(int fd);

 private:
  std::vector<char> buffer_;
  std::size_t at_ = 0;
  std::size_t filled_ = 0;
  off_t position_ = 0;  // behind the latest entry
};

}  // namespace fileop
