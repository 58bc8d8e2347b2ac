#include "dir_stream.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

namespace fileop {
namespace {

constexpr std::size_t kBufferSize = 32 * 1024;

// struct linux_dirent64 of getdents64(2).
struct RawEntry {
  std::uint64_t inode;
  std::int64_t next;
  std::uint16_t length;
  unsigned char type;
};
constexpr std::size_t kNameOffset = 19;

bool IsDots(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

bool DirStream::Next(int fd, Entry* entry) {
  for (;;) {
    if (at_ == filled_) {
      buffer_.resize(kBufferSize);
      const long got = ::syscall(SYS_getdents64, fd, buffer_.data(), buffer_.size());
      at_ = filled_ = 0;
      if (got <= 0) {
        if (got == 0) errno = 0;
        return false;
      }
      filled_ = static_cast<std::size_t>(got);
    }
    const char* record = buffer_.data() + at_;
    RawEntry raw;
    std::memcpy(&raw, record, sizeof raw);
    at_ += raw.length;
    entry->name = record + kNameOffset;
    entry->type = raw.type;
    entry->inode = raw.inode;
    if (!IsDots(entry->name)) return true;
  }
}

int DirStream::Rewind(core::UniqueFd* fd) {
  at_ = filled_ = 0;
  core::UniqueFd anew(::openat(fd->get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!anew) return -1;
  *fd = std::move(anew);
  return 0;
}

void DirStream::Suspend() {
  std::vector<char>().swap(buffer_);
  at_ = filled_ = 0;
}

int DirStream::Resume(int fd, const std::string& name) {
  Entry entry;
  while (Next(fd, &entry)) {
    if (name == entry.name) return 0;
  }
  if (errno == 0) errno = ENOENT;
  return -1;
}

}  // namespace fileop
