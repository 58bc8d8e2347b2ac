#include "temp_name.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "core/process.h"
#include "core/unique_fd.h"
#include "dir_stream.h"

namespace fileop {
namespace {

constexpr char kPrefix[] = ".fennox-";
constexpr std::size_t kPrefixLength = sizeof kPrefix - 1;
// Whether a process elsewhere still runs cannot be asked; after this long
// without a change nobody waits for it.
constexpr std::time_t kForeignAge = 7 * 24 * 3600;

struct Parts {
  std::uint32_t machine;
  std::uint32_t pid;
  std::uint64_t start;
  std::uint64_t number;
};

std::string Format(const Parts& parts) {
  char text[96];
  std::snprintf(text, sizeof text, "%s%08" PRIx32 "-%" PRIx32 "-%" PRIx64 "-%016" PRIx64, kPrefix,
                parts.machine, parts.pid, parts.start, parts.number);
  return text;
}

bool Parse(const char* name, Parts* parts) {
  if (std::strncmp(name, kPrefix, kPrefixLength) != 0) return false;
  if (std::sscanf(name + kPrefixLength, "%8" SCNx32 "-%8" SCNx32 "-%16" SCNx64 "-%16" SCNx64,
                  &parts->machine, &parts->pid, &parts->start, &parts->number) != 4) {
    return false;
  }
  return Format(*parts) == name;  // only what this library would write
}

bool IsAbandoned(int folder, const char* name) {
  switch (OwnerOfTempName(name)) {
    case TempOwner::kGone:
      return true;
    case TempOwner::kForeign: {
      struct stat st;
      return ::fstatat(folder, name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
             st.st_ctim.tv_sec + kForeignAge < std::time(nullptr);
    }
    default:
      return false;
  }
}

// An unfinished folder holds files only, and no folder.
void RemoveUnfinishedFolder(int parent, const char* name) {
  const core::UniqueFd folder(
      ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (folder.valid()) {
    DirStream stream;
    DirStream::Entry entry;
    while (stream.Next(folder.get(), &entry)) ::unlinkat(folder.get(), entry.name, 0);
  }
  ::unlinkat(parent, name, AT_REMOVEDIR);
}

}  // namespace

std::string MakeTempName() {
  thread_local Parts parts{};
  const auto pid = static_cast<std::uint32_t>(::getpid());
  if (parts.pid != pid) {  // the first name, or the first one after a fork
    parts.machine = core::MachineId();
    parts.pid = pid;
    parts.start = core::ProcessStartTime(::getpid()).value_or(0);
    if (::getrandom(&parts.number, sizeof parts.number, 0) < 0) {
      parts.number = static_cast<std::uint64_t>(std::time(nullptr)) << 20;
    }
  }
  ++parts.number;
  return Format(parts);
}

TempOwner OwnerOfTempName(const char* name) {
  Parts parts;
  if (!Parse(name, &parts)) return TempOwner::kNone;
  if (parts.machine != core::MachineId()) return TempOwner::kForeign;
  const bool runs = core::ProcessRuns(static_cast<pid_t>(parts.pid), parts.start);
  return runs ? TempOwner::kLiving : TempOwner::kGone;
}

void CleanLeftovers(int folder) {
  const int saved = errno;
  const core::UniqueFd listing(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (listing.valid()) {
    DirStream stream;
    DirStream::Entry entry;
    while (stream.Next(listing.get(), &entry)) {
      if (entry.name[0] != '.' || !IsAbandoned(folder, entry.name)) continue;
      if (::unlinkat(folder, entry.name, 0) != 0 && errno == EISDIR) {
        RemoveUnfinishedFolder(folder, entry.name);
      }
    }
  }
  errno = saved;
}

}  // namespace fileop
