#include "ahead_folder.h"

#include <fcntl.h>

namespace fileop {
namespace {

// What comes and goes in the folder meanwhile counts as done afterwards.
constexpr std::chrono::milliseconds kHolds{5};

}  // namespace

void AheadFolder::Run() {
  seen_ = Clock::now();
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  fd.reset(::openat(parent_fd_, name_.c_str(), kFlags));
  if (fd.valid() && ::fstat(fd.get(), &st) != 0) fd.reset();
  if (fd.valid()) stream.Prefetch(fd.get());
}

bool AheadFolder::Is(const SourceFolder& parent, const std::string& name) const {
  return fd.valid() && parent_ == parent.id && name_ == name && Clock::now() - seen_ < kHolds;
}

}  // namespace fileop
