// The next source folder of a walk, opened and listed while the one before it ends.
#pragma once

#include <sys/stat.h>

#include <string>
#include <utility>

#include "core/unique_fd.h"
#include "dir_stream.h"
#include "folder.h"
#include "helper.h"

namespace fileop {

class AheadFolder : public OnceWork {
 public:
  // `parent` stays open until this is awaited.
  AheadFolder(Helper* helper, const SourceFolder& parent, std::string name)
      : OnceWork(helper), parent_fd_(parent.fd.get()), parent_(parent.id), name_(std::move(name)) {}

  // Whether this is the folder `name` of `parent`, as it was a moment ago.
  bool Is(const SourceFolder& parent, const std::string& name) const;

  const Identity& parent() const { return parent_; }

  // The result, once awaited; without a descriptor nothing is known. The stream has the first
  // entries.
  core::UniqueFd fd;
  struct stat st {};
  DirStream stream;

 private:
  void Run() override;

  const int parent_fd_;
  const Identity parent_;
  std::string name_;
  Clock::time_point seen_;
};

}  // namespace fileop
