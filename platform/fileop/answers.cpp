#include "answers.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>

#include "core/error.h"
#include "core/unique_fd.h"
#include "dir_stream.h"

namespace fileop {
namespace {

// A mount may hold several connections that are broken: each fails once, and at once.
constexpr int kMostAttempts = 5;
constexpr std::chrono::seconds kPatience{5};

int List(int folder) {
  const core::UniqueFd listing(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!listing) return errno;
  DirStream stream;
  DirStream::Entry entry;
  return stream.Next(listing.get(), &entry) ? 0 : errno;
}

}  // namespace

bool MayBeLost(int code, int err) {
  switch (err) {
    case EIO:
    case ENOTCONN:
    case ECONNRESET:
    case ECONNABORTED:
    case ETIMEDOUT:
    case EHOSTDOWN:
      return true;
    default:
      return code == core::kErrHostDown;
  }
}

bool Answers(int folder) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  for (int attempt = 1;; ++attempt) {
    if (!MayBeLost(core::kErrNone, List(folder))) return true;
    if (attempt == kMostAttempts || std::chrono::steady_clock::now() > end) return false;
  }
}

}  // namespace fileop
