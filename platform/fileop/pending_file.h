// A file that has no final name yet.
#pragma once

#include <sys/types.h>

#include <string>

#include "core/unique_fd.h"
#include "folder.h"

namespace fileop {

// Stands without a name, under a temporary name, or, in a folder that nobody
// sees yet, at its own place. Unless committed, it is removed; removal never
// changes errno.
//
// On a remote mount it stands under a temporary name too, but is shown by its
// final path: that path tells where on the server data is to be streamed to.
// Whoever streams it there gives no descriptor back, and the file is taken to be
// at its place from then on.
class PendingFile {
 public:
  PendingFile() = default;
  PendingFile(PendingFile&& other) noexcept;
  PendingFile& operator=(PendingFile&&) = delete;
  ~PendingFile() { Discard(); }

  // Creates the file in `folder`, which must outlive it. `replace`: something
  // stands under `name` that the file is to replace. -1 with the last error set.
  [[nodiscard]] int Create(const TargetFolder& folder, const std::string& name, mode_t mode,
                           bool replace);

  // Adopts a file that was brought to its place past the mount, whole: it stays there
  // whatever comes. -1 with the last error set.
  [[nodiscard]] int Adopt(const TargetFolder& folder, const std::string& name);

  // Adopts a name made otherwise (a link, a device node): `Create` without a file.
  [[nodiscard]] int CreateNode(const TargetFolder& folder, const std::string& name, bool replace,
                               int (*make)(int folder, const char* name, const void* how),
                               const void* how);

  int fd() const { return fd_.get(); }

  // A path by which the file can be opened while this object lives; on a remote
  // mount the final one.
  std::string ShownPath() const;

  // A descriptor to hand out that others may close.
  [[nodiscard]] int Lend();
  // Takes back what was lent; opens the file again when it was closed.
  [[nodiscard]] int TakeBack(int fd);
  // After a failure: removes what the borrower may have left unfinished under the
  // final name on a remote mount, having opened that as `fd`.
  void DropUnfinished(int fd) const;

  // Gives the file its final name; with `replace` whatever stands there is
  // replaced, once the file's data is on disk (as long as its descriptor is
  // open), else EEXIST is left in errno. -1 without the last error set: the
  // caller knows what a taken name means.
  [[nodiscard]] int Commit(const std::string& name, bool replace);

  // Puts the data of a file that stands under a temporary name on disk, its
  // descriptor open or not. -1 with the last error set.
  [[nodiscard]] int Sync() const;

  // Closes the descriptor of a complete file; some file systems tell only then
  // that data was lost. -1 with the last error set.
  [[nodiscard]] int Close();

  // Name relative to the folder under which it stands; empty for none.
  const std::string& stands_as() const { return stands_as_; }

  void Discard();

  void Swap(PendingFile& other);

 private:
  int CreateNamed(const TargetFolder& folder, mode_t mode);
  int LinkNameless(const std::string& name);
  int TakeFromItsPlace(int fd);
  bool IsOurs(int fd) const;

  const TargetFolder* folder_ = nullptr;
  core::UniqueFd fd_;
  std::string stands_as_;
  std::string streams_to_;  // final name, on a remote mount
  Identity made_;           // with it, the temporary file
  bool at_its_place_ = false;
  bool committed_ = false;
};

// renameat2 with RENAME_NOREPLACE, also where the file system does not know it.
[[nodiscard]] int RenameNoReplace(int from, const char* name, int to, const char* new_name);

}  // namespace fileop
