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

// As getdents64 answers.
long DirStream::Fill(int fd) {
  buffer_.resize(kBufferSize);
  at_ = filled_ = 0;
  const long got = ::syscall(SYS_getdents64, fd, buffer_.data(), buffer_.size());
  if (got > 0) filled_ = static_cast<std::size_t>(got);
  return got;
}

// The entry at `at`; returns where the next one begins.
std::size_t DirStream::EntryAt(std::size_t at, Entry* entry) const {
  const char* record = buffer_.data() + at;
  RawEntry raw;
  std::memcpy(&raw, record, sizeof raw);
  *entry = {record + kNameOffset, raw.type, raw.inode};
  return at + raw.length;
}

bool DirStream::Next(int fd, Entry* entry) {
  for (;;) {
    if (at_ == filled_) {
      const long got = Fill(fd);
      if (got == 0) errno = 0;
      if (got <= 0) return false;
    }
    at_ = EntryAt(at_, entry);
    if (!IsDots(entry->name)) return true;
  }
}

void DirStream::Prefetch(int fd) { (void)Fill(fd); }

const char* DirStream::FolderInSight() const {
  Entry entry;
  for (std::size_t at = at_; at < filled_;) {
    at = EntryAt(at, &entry);
    if (entry.type == DT_DIR && !IsDots(entry.name)) return entry.name;
  }
  return nullptr;
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
