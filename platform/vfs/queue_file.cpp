#include "queue_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sstream>
#include <thread>

#include "core/config.h"
#include "core/unique_fd.h"
#include "vfs/vfs.h"

namespace vfs {
namespace {

constexpr std::size_t kLargestFile = 1U << 20U;
constexpr std::size_t kLongestWord = 255;
constexpr std::chrono::seconds kLockTimeout{1};
// Closes the list. What a shorter rewrite that was cut off left behind comes
// after it and is not read.
constexpr const char* kEnd = "end";

std::string RunFolder() {
  const std::string& state = core::CurrentConfig().server.state;
  return state.empty() ? std::string() : state + "/run";
}

bool MakeFolder(const std::string& folder) {
  if (mkdir(folder.c_str(), 0755) == 0) return chmod(folder.c_str(), 0755) == 0;
  return errno == EEXIST;
}

core::UniqueFd OpenFile(const std::string& path, int extra) {
  return core::UniqueFd(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | extra, 0666));
}

// Opens the file, and makes it when it is missing. Modes are set explicitly, so
// that whatever the umask, the next user's worker can use the file.
core::UniqueFd OpenOrCreate() {
  const std::string folder = RunFolder();
  if (folder.empty()) return {};
  const std::string path = folder + "/vfs-queue";
  core::UniqueFd file = OpenFile(path, 0);
  if (!file && errno == ENOENT && MakeFolder(folder)) {
    file = OpenFile(path, O_CREAT | O_EXCL);
    if (file && fchmod(file.get(), 0666) != 0) return {};
    if (!file && errno == EEXIST) file = OpenFile(path, 0);
  }
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return file;
}

bool Lock(int fd) {
  const auto deadline = std::chrono::steady_clock::now() + kLockTimeout;
  while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

bool ReadText(int fd, std::string* text) {
  text->resize(kLargestFile);
  std::size_t have = 0;
  while (have < text->size()) {
    const ssize_t got =
        pread(fd, text->data() + have, text->size() - have, static_cast<off_t>(have));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    have += static_cast<std::size_t>(got);
  }
  text->resize(have);
  return true;
}

bool WriteText(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t put =
        pwrite(fd, text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    done += static_cast<std::size_t>(put);
  }
  return ftruncate(fd, static_cast<off_t>(text.size())) == 0;
}

QueueEntries Parse(const std::string& text) {
  QueueEntries entries;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line) && line != kEnd) {
    std::istringstream words(line);
    QueueEntry entry;
    std::string rest;
    if (words >> entry.pid >> entry.start >> entry.uid >> entry.queue >> entry.task_id &&
        !(words >> rest) && entry.pid > 0 && IsQueueWord(entry.queue) &&
        IsQueueWord(entry.task_id)) {
      entries.push_back(entry);
    }
  }
  return entries;
}

std::string Format(const QueueEntries& entries) {
  std::ostringstream text;
  for (const QueueEntry& entry : entries) {
    text << entry.pid << ' ' << entry.start << ' ' << entry.uid << ' ' << entry.queue << ' '
         << entry.task_id << '\n';
  }
  text << kEnd << '\n';
  return text.str();
}

}  // namespace

bool IsQueueWord(const std::string& text) {
  return !text.empty() && text.size() <= kLongestWord &&
         std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7F; });
}

bool PrepareQueue() { return OpenOrCreate().valid(); }

bool UpdateQueue(const std::function<void(QueueEntries&)>& change) {
  const core::UniqueFd file = OpenOrCreate();
  std::string text;
  if (!file || !Lock(file.get()) || !ReadText(file.get(), &text)) return false;
  QueueEntries entries = Parse(text);
  const QueueEntries before = entries;
  change(entries);
  if (entries == before) return true;
  const std::string changed = Format(entries);
  return changed.size() <= kLargestFile && WriteText(file.get(), changed);
}

}  // namespace vfs
