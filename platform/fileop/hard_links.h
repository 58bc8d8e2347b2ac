// Files of one tree that have several names in it.
#pragma once

#include <string>
#include <unordered_map>

#include "job.h"

namespace fileop {

// Remembers where a file's first name was copied to. Files whose every name has
// been met are forgotten.
class HardLinks {
 public:
  // Gives the entry its name by linking to the earlier copy. 1 when done, 0 when
  // it is to be copied, -1 on failure.
  [[nodiscard]] int TryLink(Job& job);

  // The job's entry was copied as the first of its names.
  void Remember(const Job& job);

  // The folder with this identity got another path.
  void FolderMoved(const Identity& folder, const std::string& path);

  bool empty() const { return files_.empty(); }

 private:
  struct Hash {
    std::size_t operator()(const Identity& id) const { return id.ino * 31 + id.dev; }
  };
  struct Copy {
    Identity folder;
    std::string name;
    Identity file;
    nlink_t names_left;
  };
  struct Folder {
    std::string path;
    std::size_t uses = 0;
  };

  void Forget(std::unordered_map<Identity, Copy, Hash>::iterator at);

  std::unordered_map<Identity, Copy, Hash> files_;
  std::unordered_map<Identity, Folder, Hash> folders_;
};

}  // namespace fileop
