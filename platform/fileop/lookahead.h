// The next files of a folder, opened and, when small, read before their turn.
#pragma once

#include <sys/stat.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/aligned_buffer.h"
#include "core/unique_fd.h"
#include "dir_stream.h"
#include "fileop/behind.h"
#include "helper.h"
#include "metadata.h"
#include "pending_file.h"

namespace fileop {

// Where files are opened ahead, and where their copies will stand.
struct AheadPlace {
  int from = -1;
  const TargetFolder* to = nullptr;  // null for a remote source
  const MetadataRules* rules = nullptr;
  enum class How { kNot, kOpen, kRead, kLook } how = How::kNot;  // kRead and kLook: remote
  TAVOAHEADSOURCE* past_mount = nullptr;                         // of kRead
};

// One file that will be asked for. Whoever claims it first opens it.
class AheadFile : public OnceWork {
 public:
  AheadFile(Helper* helper, const AheadPlace& place, std::string name)
      : OnceWork(helper), place_(place), name_(std::move(name)) {}

  // The result, once it is there. An invalid descriptor says nothing but that the
  // file is to be opened again; of a remote source, as large as is read ahead at most, it holds
  // the content only, and the file on its mount is closed.
  core::UniqueFd fd;
  struct stat st {};
  bool looked = false;  // `st` is known, though the file was not opened
  // The server may have had no connection left for it.
  bool refused = false;
  // All of a small file, read from `src` now unless it was before; for the calling thread, until
  // it asks for another one's. Empty: it is to be read in the ordinary way.
  std::string_view Content(int src);
  // The copy, still empty, when it goes into a folder that nobody sees; it is
  // removed unless it is taken.
  PendingFile target;

 private:
  void Run() override;
  void OpenRemote();
  void ReadThroughMount();
  bool ReadPastMount();
  bool ReadWhole(int src, char* data);
  bool Small() const;
  void MakeTarget();

  AheadPlace place_;
  std::string name_;
  core::AlignedBuffer data_;                 // when it was read ahead
  std::optional<std::string_view> content_;  // once it was asked for
};

// Reads a folder's listing ahead of the walk, a stretch at a time; folders are left
// out. Within a stretch files come by inode, which is about the order in which they
// lie on a disk.
class Lookahead {
 public:
  struct Entry {
    std::string name;
    unsigned char type = 0;
    std::shared_ptr<AheadFile> file;  // null unless it is opened ahead
  };

  explicit Lookahead(Helper* helper) : helper_(helper) {}

  // The next entry that is not a folder; *folders is set when one was passed.
  // False at the listing's end (errno 0) and when it cannot be read.
  bool Next(const AheadPlace& place, DirStream* stream, Entry* entry, bool* folders);

  // Forgets the entries of a folder that is given up.
  void Clear();

  // Removes the empty copies, before others can see them.
  void DropTargets();

  // Whether the folder's last entries are on; then its first folder, if it has one, is known.
  bool Ending() const { return ended_ && next_ == listed_.size(); }
  const std::string& first_folder() const { return first_folder_; }

  // Files larger than this are not read ahead; past the mount, larger ones are.
  static constexpr off_t kLargestRead = 64 * 1024;
  static constexpr off_t kLargestReadPast = off_t{1} << 20;

 private:
  struct Listed {
    std::string name;
    unsigned char type;
    ino_t inode;
  };

  bool List(const AheadPlace& place, DirStream* stream, bool* folders);
  void Fill(const AheadPlace& place, DirStream* stream, bool* folders);

  static constexpr std::size_t kStretch = 1024;
  static constexpr std::size_t kEntries = 24;
  static constexpr std::size_t kReadEntries = 16;  // each is read from a server
  // Half of them are asked for in one go: a mount may answer them all from one listing.
  static std::size_t MostEntries(const AheadPlace& place) {
    return place.how == AheadPlace::How::kRead ? kReadEntries : kEntries;
  }

  Helper* helper_;
  std::vector<Listed> listed_;
  std::size_t next_ = 0;  // of listed_
  std::deque<Entry> entries_;
  std::size_t passed_ = 0;  // entries of this folder so far
  std::string first_folder_;
  bool ended_ = false;
  int error_ = 0;
};

// DT_DIR or another type; unknown ones are looked up.
bool IsFolder(int parent, const char* name, unsigned char type);

}  // namespace fileop
