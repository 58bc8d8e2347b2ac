#include "leftovers.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <random>

#include "core/process.h"
#include "server_path.h"

namespace TAVOCloud {
namespace {

constexpr const char* kUploadFormat =
    ".fennox-upload-%08" PRIx32 "-%" PRIx32 "-%" PRIx64 "-%016" PRIx64;
constexpr const char* kUploadScan =
    ".fennox-upload-%8" SCNx32 "-%8" SCNx32 "-%16" SCNx64 "-%16" SCNx64;
constexpr std::size_t kLongestName = 128;   // longer than any of ours
constexpr std::size_t kLongestLine = 8192;  // with the folder's path
constexpr std::size_t kMostFolders = 1000;

struct Upload {
  std::uint32_t machine;
  std::uint32_t pid;
  std::uint64_t start;
  std::uint64_t number;
};

std::string NameOf(const Upload& upload) {
  char name[kLongestName];
  std::snprintf(name, sizeof name, kUploadFormat, upload.machine, upload.pid, upload.start,
                upload.number);
  return name;
}

std::uint64_t RandomNumber() {
  std::random_device random;
  return (static_cast<std::uint64_t>(random()) << 32U) | random();
}

// A process whose start nobody may look at may be the one.
bool HasEnded(const Upload& upload) {
  const auto pid = static_cast<pid_t>(upload.pid);
  const auto start = core::ProcessStartTime(pid);
  if (start) return *start != upload.start;
  return pid > 0 && kill(pid, 0) != 0 && errno == ESRCH;
}

}  // namespace

std::string UploadPathBeside(const std::string& path) {
  thread_local Upload upload{};
  const auto pid = static_cast<std::uint32_t>(getpid());
  if (upload.pid != pid) {  // the first name, or the first one after a fork
    upload = {core::MachineId(), pid, core::ProcessStartTime(getpid()).value_or(0), RandomNumber()};
  }
  ++upload.number;
  return FolderOf(path) + NameOf(upload);
}

std::string AsidePathBeside(const std::string& path) {
  char name[kLongestName];
  std::snprintf(name, sizeof name, ".fennox-aside-%016" PRIx64, RandomNumber());
  return FolderOf(path) + name;
}

bool IsAbandonedUpload(std::string_view name) {
  if (name.size() >= kLongestName) return false;
  const std::string text(name);
  Upload upload{};
  if (std::sscanf(text.c_str(), kUploadScan, &upload.machine, &upload.pid, &upload.start,
                  &upload.number) != 4) {
    return false;
  }
  return NameOf(upload) == text && upload.machine == core::MachineId() && HasEnded(upload);
}

void LeftoverPicker::Take(std::string_view text) {
  for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    line_.append(text.substr(0, end));
    if (!line_.empty() && line_.back() == '\r') line_.pop_back();
    const std::string name = line_.substr(line_.rfind('/') + 1);
    if (IsAbandonedUpload(name)) names_.push_back(name);
    line_.clear();
    text.remove_prefix(end + 1);
  }
  line_.append(text.substr(0, kLongestLine - std::min(line_.size(), kLongestLine)));
}

bool SeenFolders::Add(const std::string& folder) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (folders_.size() >= kMostFolders && folders_.count(folder) == 0) folders_.clear();
  return folders_.insert(folder).second;
}

}  // namespace TAVOCloud
