// The one file in which all workers of a server queue for remote mounts.
//
// Every line is an entry; their order is the order of service. The file lies in
// STATE/run, which only the server's own user may change, and is itself
// writable by everyone, because each worker runs as the user whose files it
// copies. Nothing in it is trusted:
//  - A line that is not well formed is dropped, the file is read up to a fixed
//    size, and it holds no secret (an id is worth nothing without its user's
//    store) and no path.
//  - An entry never makes anybody signal a process or open a file.
//  - Who can run programs on the server as a local user can therefore at worst
//    disturb the order: push an entry to the front, drop one (its owner joins
//    again, at the end), or hold the lock, which every caller waits for only a
//    bounded time. Transfers are then delayed, and can be stopped as ever.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vfs {

struct QueueEntry {
  std::string queue;
  std::string task_id;
  pid_t pid = 0;
  std::uint64_t start = 0;  // the process's start time
  uid_t uid = 0;            // user of the process when it joined

  bool operator==(const QueueEntry&) const = default;
};

using QueueEntries = std::vector<QueueEntry>;

// False when a text cannot be part of a line.
bool IsQueueWord(const std::string& text);

// Reads the entries under the file's lock, lets `change` alter them, and writes
// them back if it did. False when the file cannot be opened, locked within a
// second, read or written; nothing has changed then.
[[nodiscard]] bool UpdateQueue(const std::function<void(QueueEntries&)>& change);

// True when a task of the user waits or runs, and when that cannot be told.
[[nodiscard]] bool HasTaskOf(uid_t uid);

}  // namespace vfs
