#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <optional>
#include <string>

#include "core/process.h"
#include "queue_file.h"
#include "vfs/vfs.h"

namespace TAVOVFS {
namespace {

using vfs::QueueEntries;
using vfs::QueueEntry;

struct Question {
  TaskProbe probe;
  void* user;
};

std::optional<QueueEntry> EntryOf(const char* queue, const char* taskId, int pid) {
  if (queue == nullptr || taskId == nullptr || pid <= 0) return std::nullopt;
  QueueEntry entry{queue, taskId, pid, 0, geteuid()};
  if (!vfs::IsQueueWord(entry.queue) || !vfs::IsQueueWord(entry.task_id)) return std::nullopt;
  const auto start = core::ProcessStartTime(pid);
  entry.start = start.value_or(0);
  return entry;
}

bool IsSameTask(const QueueEntry& a, const QueueEntry& b) {
  return a.queue == b.queue && a.task_id == b.task_id && a.pid == b.pid;
}

// Where other users' processes are hidden from us, a pid that we may not signal
// is somebody's living process, and its start time must be taken on trust.
bool IsHidden(pid_t pid) {
  struct stat status {};
  const std::string folder = "/proc/" + std::to_string(pid);
  return kill(pid, 0) != 0 && errno == EPERM && stat(folder.c_str(), &status) != 0;
}

bool IsAlive(const QueueEntry& entry) {
  return core::ProcessRuns(entry.pid, entry.start) ||
         (!core::ProcessStartTime(entry.pid) && IsHidden(entry.pid));
}

void DropDead(QueueEntries& entries) {
  std::erase_if(entries, [](const QueueEntry& entry) { return !IsAlive(entry); });
}

// The entries that the caller's probe says are over. The probe looks ids up
// among the caller's own tasks and says "not running" to every other user's, so
// only entries of the same user are asked about. Not under the file's lock: a
// probe may wait for a task store.
QueueEntries AskForFinished(const QueueEntries& entries, const QueueEntry& own,
                            const Question& question) {
  QueueEntries finished;
  if (question.probe == nullptr) return finished;
  for (const QueueEntry& entry : entries) {
    if (entry.uid != own.uid || IsSameTask(entry, own)) continue;
    const int answer =
        question.probe(entry.queue.c_str(), entry.task_id.c_str(), entry.pid, question.user);
    if (answer < 0) break;
    if (answer == 0) finished.push_back(entry);
  }
  return finished;
}

void Drop(QueueEntries& entries, const QueueEntries& finished) {
  std::erase_if(entries, [&](const QueueEntry& entry) {
    return std::find(finished.begin(), finished.end(), entry) != finished.end();
  });
}

// Drops what no longer runs; false when the file could not be used.
bool Tidy(const QueueEntry& own, const Question& question) {
  QueueEntries seen;
  if (!vfs::UpdateQueue([&](QueueEntries& entries) {
        DropDead(entries);
        seen = entries;
      })) {
    return false;
  }
  const QueueEntries finished = AskForFinished(seen, own, question);
  return finished.empty() ||
         vfs::UpdateQueue([&](QueueEntries& entries) { Drop(entries, finished); });
}

// Tasks of the queue that come before `own`; an entry that is missing joins
// again at the end.
std::size_t PlaceInQueue(QueueEntries& entries, const QueueEntry& own) {
  std::size_t ahead = 0;
  for (const QueueEntry& entry : entries) {
    if (IsSameTask(entry, own)) return ahead;
    if (entry.queue == own.queue) ++ahead;
  }
  entries.push_back(own);
  return ahead;
}

}  // namespace

}  // namespace TAVOVFS

bool vfs::HasTaskOf(uid_t uid) {
  bool found = false;
  const bool read = UpdateQueue([&](QueueEntries& entries) {
    found = std::any_of(entries.begin(), entries.end(), [uid](const QueueEntry& entry) {
      return entry.uid == uid && TAVOVFS::IsAlive(entry);
    });
  });
  return found || !read;
}

namespace TAVOVFS {

TaskMgr::TaskMgr(unsigned int slots) : slots_(slots) {}

bool TaskMgr::Add(const char* queue, const char* taskId, int pid) {
  const auto own = EntryOf(queue, taskId, pid);
  if (!own || own->start == 0) return false;
  return vfs::UpdateQueue([&](QueueEntries& entries) {
    DropDead(entries);
    PlaceInQueue(entries, *own);
  });
}

int TaskMgr::IsRunnable(const char* queue, const char* taskId, int pid, TaskProbe probe,
                        void* user) {
  const auto own = EntryOf(queue, taskId, pid);
  if (!own || own->start == 0 || !Tidy(*own, {probe, user})) return 0;
  bool runnable = false;
  const bool updated = vfs::UpdateQueue(
      [&](QueueEntries& entries) { runnable = PlaceInQueue(entries, *own) < slots_; });
  return updated && runnable ? 1 : 0;
}

void TaskMgr::Clean(const char* queue, const char* taskId, int pid, TaskProbe probe, void* user,
                    bool all) {
  const auto own = EntryOf(queue, taskId, pid);
  if (!own) return;
  // An entry that cannot be taken out goes with its process.
  (void)vfs::UpdateQueue([&](QueueEntries& entries) {
    std::erase_if(entries, [&](const QueueEntry& entry) { return IsSameTask(entry, *own); });
  });
  if (all) (void)Tidy(*own, {probe, user});
}

}  // namespace TAVOVFS
