#include <ctime>
#include <utility>
#include <vector>

#include "records.h"
#include "tasks/store.h"
#include "worker_process.h"

namespace tasks {
namespace internal {
namespace {

// With `pid` > 0 that worker is known to be gone.
bool IsOver(const Row& row, pid_t pid) {
  if (row.finished) return false;
  if (pid > 0) return row.pid == pid;
  if (!row.pid) return time(nullptr) - row.created >= kSecondsWithoutData;
  return !WorkerRuns(*row.pid, row.pid_start);
}

std::vector<std::string> UnfinishedIds(const std::string& user) {
  std::vector<std::string> ids;
  Database database;
  if (database.Open(user) != Result::kDone) return ids;
  Statement query(database, "SELECT id FROM tasks WHERE finished = 0 ORDER BY seq");
  while (query.Next()) ids.push_back(query.Bytes(0));
  return ids;
}

Json::Value WithFailure(Json::Value data, int code) {
  if (!data.isObject()) data = Json::Value(Json::objectValue);
  const Json::Value path = data.get("path", "");
  Json::Value failure(Json::objectValue);
  failure["code"] = code;
  failure["path"] = path.isString() ? path : Json::Value("");
  data["status"] = "FAIL";
  if (!data["errors"].isArray()) data["errors"] = Json::Value(Json::arrayValue);
  data["errors"].append(std::move(failure));
  return data;
}

// One transaction from the look at the record to its end: what a worker wrote
// just before it died is kept, and one that finished in time is left alone.
bool EndIfOver(const std::string& user, const std::string& id, pid_t pid, int code) {
  Database database;
  Row row;
  Json::Value data;
  if (database.Open(user) != Result::kDone || database.Begin() != Result::kDone ||
      FindRow(database, id, &row) != Result::kDone || !IsOver(row, pid) ||
      ReadProperty(database, row, "data", &data) != Result::kDone) {
    return false;
  }
  Json::Value values(Json::objectValue);
  values["data"] = WithFailure(std::move(data), code);
  values["progress"] = -1;
  return WriteProperties(database, row, values) == Result::kDone &&
         MarkFinished(database, row, values, {}) == Result::kDone &&
         database.Commit() == Result::kDone;
}

}  // namespace
}  // namespace internal

int EndRecordsOfDeadWorkers(const std::string& user, pid_t pid, int code) {
  int ended = 0;
  for (const std::string& id : internal::UnfinishedIds(user)) {
    if (internal::EndIfOver(user, id, pid, code)) ++ended;
  }
  return ended;
}

}  // namespace tasks
