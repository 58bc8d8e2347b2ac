#include "lookahead.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "regular_file.h"
#include "vfs/mounts.h"

namespace fileop {
namespace {

// The first files of a folder come before any help could.
constexpr std::size_t kAlone = 2;
// How far a larger file is asked for before its turn when its device is slow.
constexpr std::size_t kLargestHint = std::size_t{1} << 20;

constexpr off_t kSmallestPage = 4096;

// Reads without waiting for a device: -1 with EAGAIN, or short, where it would have to.
ssize_t ReadAtOnce(int fd, char* data, std::size_t size) {
  const iovec part{data, size};
  return ::preadv2(fd, &part, 1, 0, RWF_NOWAIT);
}

// Whether a read that did not wait and stopped at `size` stopped at the file's end, and
// not where nothing more was in memory.
bool EndsThere(int fd, off_t size) {
  char more = 0;
  return size % kSmallestPage != 0 || ::pread(fd, &more, 1, size) == 0;
}

}  // namespace

bool IsFolder(int parent, const char* name, unsigned char type) {
  if (type != DT_UNKNOWN) return type == DT_DIR;
  struct stat st;
  return ::fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

// A mount may have a connection for each open file, so none stays open. What is read is given on
// as a file of its own.
void AheadFile::OpenRemote() {
  const bool looks = place_.how == AheadPlace::How::kLook;
  if (looks || place_.past_mount != nullptr) {
    // The look-up of the name brings all that is asked for: no second question.
    constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC;
    const bool known = ::fstatat(place_.from, name_.c_str(), &st, kFlags) == 0;
    refused = !known && vfs::MayMeanServerLost(errno);
    looked = looks && known;
    if (looks || !known || ReadPastMount()) return;
  }
  ReadThroughMount();
}

// False: it is to be read otherwise.
bool AheadFile::ReadPastMount() {
  if (!S_ISREG(st.st_mode) || st.st_size == 0 || st.st_size > Lookahead::kLargestReadPast) {
    return false;
  }
  core::UniqueFd held(::memfd_create("fileop-ahead", MFD_CLOEXEC));
  const bool read = held.valid() && place_.past_mount->Read(name_.c_str(), held.get(),
                                                            static_cast<std::uint64_t>(st.st_size));
  if (!read || ::lseek(held.get(), 0, SEEK_SET) != 0) return false;
  fd = std::move(held);
  return true;
}

void AheadFile::ReadThroughMount() {
  const core::UniqueFd there(OpenQuietly(place_.from, name_.c_str()));
  const bool open = there.valid() && ::fstat(there.get(), &st) == 0;
  refused = !open && vfs::MayMeanServerLost(errno);
  const bool small =
      open && S_ISREG(st.st_mode) && st.st_size > 0 && st.st_size <= Lookahead::kLargestRead;
  if (!small) return;
  // One byte more than there should be: a short answer proves the end.
  std::vector<char> content(static_cast<std::size_t>(st.st_size) + 1);
  std::size_t size = 0;
  for (ssize_t got = 1; got > 0 && size < content.size(); size += static_cast<std::size_t>(got)) {
    got = ::read(there.get(), content.data() + size, content.size() - size);
    if (got < 0) {
      refused = vfs::MayMeanServerLost(errno);
      return;
    }
  }
  core::UniqueFd held(::memfd_create("fileop-ahead", MFD_CLOEXEC));
  if (size + 1 != content.size() || ::pwrite(held.get(), content.data(), size, 0) != st.st_size) {
    return;
  }
  fd = std::move(held);
}

void AheadFile::Run() {
  if (place_.how != AheadPlace::How::kOpen) {
    OpenRemote();
    return;
  }
  fd.reset(OpenQuietly(place_.from, name_.c_str()));
  if (fd.valid() && ::fstat(fd.get(), &st) != 0) fd.reset();
  if (fd.valid() && S_ISREG(st.st_mode) && st.st_size > 0) {
    if (Small() && helper()->waited()) {
      data_ = core::AlignedBuffer(static_cast<std::size_t>(st.st_size) + 1);
      if (!ReadWhole(fd.get(), data_.data())) data_.reset();
    } else if (helper()->slow()) {
      (void)::readahead(fd.get(), 0, kLargestHint);
    }
    MakeTarget();
  }
}

// Whether it is read as a whole: it has no holes, and is worth no better way.
bool AheadFile::Small() const {
  return st.st_size > 0 && st.st_size <= Lookahead::kLargestRead &&
         static_cast<off_t>(st.st_blocks) * 512 >= st.st_size;
}

// What is in memory is best read by the thread that writes it, at once: it is in that
// processor's cache then, and what opens files ahead has enough to do.
std::string_view AheadFile::Content(int src) {
  if (content_) return *content_;
  content_.emplace();
  if (place_.how != AheadPlace::How::kOpen || !Small()) return {};
  thread_local const core::AlignedBuffer buffer(static_cast<std::size_t>(Lookahead::kLargestRead) +
                                                1);
  const char* data = data_.data();
  if (data == nullptr && ReadWhole(src, buffer.data())) data = buffer.data();
  if (data != nullptr) content_.emplace(data, static_cast<std::size_t>(st.st_size));
  return *content_;
}

// One byte more than there should be is asked for: a short answer proves the end.
bool AheadFile::ReadWhole(int src, char* data) {
  const std::size_t size = static_cast<std::size_t>(st.st_size) + 1;
  const ssize_t at_once = ReadAtOnce(src, data, size);
  if (at_once >= 0 || errno == EAGAIN) helper()->TellSlow(at_once < st.st_size);
  if (at_once == st.st_size && EndsThere(src, st.st_size)) return true;
  return ::pread(src, data, size, 0) == st.st_size;
}

void AheadFile::MakeTarget() {
  if (!place_.to->unseen || st.st_nlink > 1) return;
  // Failures come again, and are told, when it is the file's turn.
  (void)!target.Create(*place_.to, name_, CreationMode(*place_.rules, st), false);
}

bool Lookahead::Next(const AheadPlace& place, DirStream* stream, Entry* entry, bool* folders) {
  if (entries_.size() <= MostEntries(place) / 2 && !(ended_ && next_ == listed_.size())) {
    Fill(place, stream, folders);
  }
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

// Reads the next stretch. False when nothing is left.
bool Lookahead::List(const AheadPlace& place, DirStream* stream, bool* folders) {
  listed_.clear();
  next_ = 0;
  DirStream::Entry found;
  while (!ended_ && listed_.size() < kStretch) {
    if (!stream->Next(place.from, &found)) {
      ended_ = true;
      error_ = errno;
    } else if (IsFolder(place.from, found.name, found.type)) {
      if (!*folders) first_folder_ = found.name;
      *folders = true;
    } else {
      listed_.push_back({found.name, found.type, found.inode});
    }
  }
  std::sort(listed_.begin(), listed_.end(),
            [](const Listed& a, const Listed& b) { return a.inode < b.inode; });
  return !listed_.empty();
}

void Lookahead::Fill(const AheadPlace& place, DirStream* stream, bool* folders) {
  const bool remote = place.how == AheadPlace::How::kRead || place.how == AheadPlace::How::kLook;
  while (entries_.size() < MostEntries(place)) {
    if (next_ == listed_.size() && !List(place, stream, folders)) break;
    Listed& found = listed_[next_++];
    Entry entry{std::move(found.name), found.type, nullptr};
    if (place.how != AheadPlace::How::kNot && found.type == DT_REG &&
        (remote || passed_ >= kAlone)) {
      entry.file = std::make_shared<AheadFile>(helper_, place, entry.name);
      if (!helper_->Post(entry.file)) entry.file.reset();
    }
    ++passed_;
    entries_.push_back(std::move(entry));
  }
  helper_->Wake();
}

void Lookahead::DropTargets() {
  if (entries_.empty()) return;
  helper_->Drain();
  for (Entry& entry : entries_) {
    if (entry.file != nullptr) entry.file->target.Discard();
  }
}

void Lookahead::Clear() {
  if (!entries_.empty()) helper_->Drain();
  entries_.clear();
  listed_.clear();
  next_ = 0;
  passed_ = 0;
  first_folder_.clear();
  ended_ = false;
  error_ = 0;
}

}  // namespace fileop
