// The host's view of the stores: lists, notifications, dead workers.
#pragma once

#include <sys/types.h>

#include <json/value.h>
#include <cstdint>
#include <string>
#include <vector>

namespace tasks {

// One record as lists and the raw view show it.
struct Record {
  std::string id;
  bool finished = false;
  double progress = 0.0;
  Json::Value data;          // null when absent
  std::int64_t created = 0;  // seconds since the epoch
};

// The user's records, oldest first. Empty when there is no store.
std::vector<Record> List(const std::string& user);

// One record. False when there is none.
[[nodiscard]] bool Read(const std::string& user, const std::string& id, Record* out);

// The user's latest notifications, newest first, as JSON objects {"id", "time",
// "app", "taskid", "category", "title", "args":[…]}.
Json::Value Notifications(const std::string& user, int limit);

// Ends records whose worker is gone: every unfinished record of `user` with a
// pid that no longer runs with the stored start time becomes finished, with
// "progress" -1, "status" "FAIL" and `code` appended to "errors" with the path
// in hand. With `pid` > 0 only that worker's records are looked at and it is
// taken as gone. An unfinished record without a pid is ended once it is ten
// minutes old. Returns the number of records ended. Runs as the store's owner.
int EndRecordsOfDeadWorkers(const std::string& user, pid_t pid, int code);

// Counts over all tasks that the user ever had: records go, these stay. A task is
// started when its worker is on record; it ends finished or failed ("progress" -1),
// or stopped: removed before its end. They begin anew with a new store.
struct Totals {
  std::int64_t started = 0;
  std::int64_t finished = 0;
  std::int64_t failed = 0;
  std::int64_t stopped = 0;
  std::int64_t bytes = 0;  // transferred by tasks that ended
};

// Zeros when there is no store, or none that can be read.
Totals ReadTotals(const std::string& user);

// Makes the user's store when it is missing, so that the first task need not wait for it.
// Runs as the user, or as root.
void Prepare(const std::string& user);

// Does once what any use of a store needs, without a store: calls are bound, memory is touched.
void WarmUp();

// Users that have a store.
std::vector<std::string> UsersWithStore();

}  // namespace tasks
