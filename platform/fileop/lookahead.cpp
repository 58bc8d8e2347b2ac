#include "lookahead.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "regular_file.h"

namespace fileop {
namespace {

// The first files of a folder come before any help could.
constexpr std::size_t kAlone = 4;

}  // namespace

bool IsFolder(int parent, const char* name, unsigned char type) {
  if (type != DT_UNKNOWN) return type == DT_DIR;
  struct stat st;
  return ::fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

void AheadFile::Do() {
  int expected = kWaiting;
  if (!state_.compare_exchange_strong(expected, kClaimed)) {
    SpinBriefly([this] { return state_.load(std::memory_order_acquire) == kDone; });
    state_.wait(kClaimed, std::memory_order_acquire);
    return;
  }
  fd.reset(OpenQuietly(place_.from, name_.c_str()));
  if (fd.valid() && ::fstat(fd.get(), &st) != 0) fd.reset();
  if (fd.valid() && S_ISREG(st.st_mode) && st.st_size > 0) {
    if (st.st_size <= Lookahead::kLargestRead) ReadWhole();
    MakeTarget();
  }
  state_.store(kDone, std::memory_order_release);
  state_.notify_all();
}

void AheadFile::ReadWhole() {
  const bool holes = static_cast<off_t>(st.st_blocks) * 512 < st.st_size;
  if (holes) return;
  // One byte more than there should be: a short answer proves the end.
  data.resize(static_cast<std::size_t>(st.st_size) + 1);
  whole = ::pread(fd.get(), data.data(), data.size(), 0) == st.st_size;
  data.resize(static_cast<std::size_t>(st.st_size));
}

void AheadFile::MakeTarget() {
  if (!place_.to->unseen || st.st_nlink > 1) return;
  // Failures come again, and are told, when it is the file's turn.
  (void)!target.Create(*place_.to, name_, CreationMode(*place_.rules, st), false);
}

bool Lookahead::Next(const AheadPlace& place, DirStream* stream, Entry* entry, bool* folders) {
  if (entries_.size() <= kEntries / 2 && !ended_) Fill(place, stream, folders);
  if (entries_.empty()) {
    const int error = error_;
    Clear();
    errno = error;
    return false;
  }
  *entry = std::move(entries_.front());
  entries_.pop_front();
  return true;
}

void Lookahead::Fill(const AheadPlace& place, DirStream* stream, bool* folders) {
  DirStream::Entry found;
  while (entries_.size() < kEntries) {
    if (!stream->Next(place.from, &found)) {
      ended_ = true;
      error_ = errno;
      break;
    }
    if (IsFolder(place.from, found.name, found.type)) {
      *folders = true;
      continue;
    }
    Entry entry{found.name, found.type, nullptr};
    if (place.to != nullptr && found.type == DT_REG && passed_ >= kAlone) {
      entry.file = std::make_shared<AheadFile>(place, entry.name);
      if (!helper_->Post(entry.file)) entry.file.reset();
    }
    ++passed_;
    entries_.push_back(std::move(entry));
  }
  helper_->Wake();
}

void Lookahead::DropTargets() {
  for (Entry& entry : entries_) {
    if (entry.file != nullptr) entry.file->target.Discard();
  }
}

void Lookahead::Clear() {
  entries_.clear();
  passed_ = 0;
  ended_ = false;
  error_ = 0;
}

}  // namespace fileop
