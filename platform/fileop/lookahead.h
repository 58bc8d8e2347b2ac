// The next files of a folder, opened and, when small, read before their turn.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "core/unique_fd.h"
#include "dir_stream.h"
#include "helper.h"
#include "metadata.h"
#include "pending_file.h"

namespace fileop {

// Where files are opened ahead, and where their copies will stand.
struct AheadPlace {
  int from = -1;
  const TargetFolder* to = nullptr;
  const MetadataRules* rules = nullptr;
};

// One file that will be asked for. Whoever claims it first opens it; the other
// waits for that.
class AheadFile : public Work {
 public:
  AheadFile(const AheadPlace& place, std::string name) : place_(place), name_(std::move(name)) {}

  void Do() override;

  // The result of Do(), once it is there. An invalid descriptor says nothing but
  // that the file is to be opened again.
  core::UniqueFd fd;
  struct stat st {};
  std::vector<char> data;  // the whole file when `whole`
  bool whole = false;
  // The copy, still empty, when it goes into a folder that nobody sees; it is
  // removed unless it is taken.
  PendingFile target;

 private:
  enum State : int { kWaiting, kClaimed, kDone };

  void ReadWhole();
  void MakeTarget();

  AheadPlace place_;
  std::string name_;
  std::atomic<int> state_{kWaiting};
};

// Reads a folder's listing some entries ahead of the walk; folders are left out.
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
  // `place.to` is null when nothing is to be opened ahead.
  bool Next(const AheadPlace& place, DirStream* stream, Entry* entry, bool* folders);

  // Forgets the entries of a folder that is given up. The helper must be drained.
  void Clear();

  // Removes the empty copies, before others can see them. The helper must be
  // drained.
  void DropTargets();

  // Files larger than this are not read ahead.
  static constexpr off_t kLargestRead = 64 * 1024;

 private:
  void Fill(const AheadPlace& place, DirStream* stream, bool* folders);

  static constexpr std::size_t kEntries = 16;

  Helper* helper_;
  std::deque<Entry> entries_;
  std::size_t passed_ = 0;  // entries of this folder so far
  bool ended_ = false;
  int error_ = 0;
};

// DT_DIR or another type; unknown ones are looked up.
bool IsFolder(int parent, const char* name, unsigned char type);

}  // namespace fileop
