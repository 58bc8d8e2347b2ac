#include "records.h"

#include <ctime>
#include <utility>

#include "core/process.h"
#include "json_text.h"
#include "long_lists.h"
#include "totals.h"

namespace tasks::internal {
namespace {

// The pid is taken down with its start time once: a later write of the same pid
// must not renew it, for by then it may be another process's.
Result RecordPid(Database& database, const Row& row, const Json::Value& data) {
  if (!data.isObject() || !data["pid"].isInt()) return Result::kDone;
  const int pid = data["pid"].asInt();
  if (pid <= 0 || row.pid == pid) return Result::kDone;
  std::optional<std::int64_t> start;
  if (const auto ticks = core::ProcessStartTime(pid)) start = static_cast<std::int64_t>(*ticks);
  if (!row.pid) {
    const Result counted = AddToTotal(database, kTotalStarted, 1);
    if (counted != Result::kDone) return counted;
  }
  return Statement(database, "UPDATE tasks SET pid = ?, pid_start = ? WHERE seq = ?")
      .Bind(static_cast<std::int64_t>(pid))
      .Bind(start)
      .Bind(row.seq)
      .Run();
}

Result WriteProperty(Database& database, const Row& row, const std::string& name,
                     const std::string& text) {
  return Statement(database,
                   "INSERT INTO properties(task, name, value) VALUES(?, ?, ?) "
                   "ON CONFLICT(task, name) DO UPDATE SET value = excluded.value")
      .Bind(row.seq)
      .Bind(name)
      .BindBlob(text)
      .Run();
}

// Bytes that a record's "data" last reported.
std::int64_t ReportedBytes(const Json::Value& data) {
  const Json::Value none;
  const Json::Value& size = data.isObject() ? data["processed_size"] : none;
  return size.isNumeric() ? static_cast<std::int64_t>(size.asDouble()) : 0;
}

Result CountEnd(Database& database, const char* state, std::int64_t bytes) {
  const Result counted = AddToTotal(database, state, 1);
  return counted == Result::kDone ? AddToTotal(database, kTotalBytes, bytes) : counted;
}

// A task that is removed while it runs was stopped.
Result CountIfStopped(Database& database, const Row& row) {
  if (row.finished || !row.pid) return Result::kDone;
  Json::Value data;
  const Result read = ReadProperty(database, row, "data", &data);
  return read == Result::kDone ? CountEnd(database, kTotalStopped, ReportedBytes(data)) : read;
}

// Opens the store, begins a transaction and finds the record.
Result BeginOnRecord(Database& database, const std::string& user, const std::string& id, Row* row) {
  Result result = database.Open(user);
  if (result == Result::kDone) result = database.Begin();
  if (result == Result::kDone) result = FindRow(database, id, row);
  return result;
}

}  // namespace

Result FindRow(Database& database, const std::string& id, Row* row) {
  Statement query(database,
                  "SELECT seq, created, finished, pid, pid_start FROM tasks WHERE id = ?");
  query.Bind(id);
  if (!query.Next()) {
    const Result result = query.result();
    return result == Result::kDone ? Result::kGone : result;
  }
  row->seq = query.Integer(0);
  row->created = query.Integer(1);
  row->finished = query.Integer(2) != 0;
  row->pid = query.OptionalInteger(3);
  row->pid_start = query.OptionalInteger(4);
  return Result::kDone;
}

Result ReadProperty(Database& database, const Row& row, const char* name, Json::Value* value) {
  Statement query(database, "SELECT value FROM properties WHERE task = ? AND name = ?");
  query.Bind(row.seq).Bind(std::string(name));
  *value = query.Next() ? TextToJson(query.Bytes(0)) : Json::Value();
  return query.result();
}

Result WriteProperties(Database& database, const Row& row, const Json::Value& values,
                       StoredTexts* written) {
  for (const std::string& name : values.getMemberNames()) {
    std::string text = JsonToText(values[name]);
    Result result = WriteProperty(database, row, name, text);
    if (written != nullptr) (*written)[name] = std::move(text);
    if (result == Result::kDone && name == "data") result = RecordPid(database, row, values[name]);
    if (result != Result::kDone) return result;
  }
  return Result::kDone;
}

Result MarkFinished(Database& database, const Row& row, const Json::Value& values, const End& end) {
  const Result marked =
      Statement(database,
                "UPDATE tasks SET finished = 1, finished_at = coalesce(finished_at, ?) "
                "WHERE seq = ?")
          .Bind(static_cast<std::int64_t>(time(nullptr)))
          .Bind(row.seq)
          .Run();
  if (marked != Result::kDone || row.finished) return marked;
  const Json::Value& progress = values["progress"];
  const bool failed = progress.isNumeric() && progress.asDouble() < 0;
  return CountEnd(database, failed ? kTotalFailed : kTotalFinished,
                  end.bytes ? *end.bytes : ReportedBytes(values["data"]));
}

Result CreateRecord(const std::string& user, const std::string& id) {
  Database database;
  Result result = database.OpenOrCreate(user);
  if (result == Result::kDone) result = database.Begin();
  if (result != Result::kDone) return result;
  result = Statement(database, "INSERT INTO tasks(id, created) VALUES(?, ?)")
               .Bind(id)
               .Bind(static_cast<std::int64_t>(time(nullptr)))
               .Run();
  return result == Result::kDone ? database.Commit() : result;
}

Result LoadRecord(const std::string& user, const std::string& id, Json::Value* properties,
                  bool* finished, StoredTexts* texts) {
  Json::Value before(Json::objectValue);
  before.swap(*properties);
  const StoredTexts stored_before = std::exchange(*texts, {});
  *finished = false;
  Database database;
  if (const Result opened = database.Open(user); opened != Result::kDone) return opened;
  // A value that is selected is read whole, whether or not anybody asks for it.
  Statement query(database,
                  "SELECT p.name, iif(p.name = ?, NULL, p.value), t.finished "
                  "FROM tasks t LEFT JOIN properties p ON p.task = t.seq WHERE t.id = ?");
  query.Bind(std::string(kLongLists)).Bind(id);
  bool found = false;
  bool ended = false;
  Json::Value loaded(Json::objectValue);
  StoredTexts stored;
  while (query.Next()) {
    found = true;
    ended = query.Integer(2) != 0;
    if (query.IsNull(0)) continue;
    const std::string name = query.Bytes(0);
    if (name == kLongLists) {
      stored[name].clear();
      continue;
    }
    std::string text = query.Bytes(1);
    const auto known = stored_before.find(name);
    if (known != stored_before.end() && known->second == text && before.isMember(name)) {
      loaded[name].swap(before[name]);
    } else {
      loaded[name] = TextToJson(text);
    }
    stored[name] = std::move(text);
  }
  if (const Result result = query.result(); result != Result::kDone) return result;
  if (!found) return Result::kGone;
  *properties = std::move(loaded);
  *texts = std::move(stored);
  *finished = ended;
  return Result::kDone;
}

Result LoadLongLists(const std::string& user, const std::string& id, Json::Value* data) {
  Database database;
  if (const Result opened = database.Open(user); opened != Result::kDone) return opened;
  Statement query(database,
                  "SELECT p.value FROM tasks t JOIN properties p ON p.task = t.seq "
                  "WHERE t.id = ? AND p.name = ?");
  query.Bind(id).Bind(std::string(kLongLists));
  if (query.Next()) PutLongLists(query.Bytes(0), data);
  return query.result();
}

Result AskFinished(const std::string& user, const std::string& id, bool* finished) {
  *finished = false;
  Database database;
  Row row;
  Result result = database.Open(user);
  if (result == Result::kDone) result = FindRow(database, id, &row);
  *finished = row.finished;
  return result;
}

Result WriteRecord(const std::string& user, const std::string& id, const Json::Value& values,
                   const std::optional<End>& end, StoredTexts* written) {
  Database database;
  Row row;
  Result result = BeginOnRecord(database, user, id, &row);
  if (result == Result::kDone) result = WriteProperties(database, row, values, written);
  if (result == Result::kDone && end) result = MarkFinished(database, row, values, *end);
  return result == Result::kDone ? database.Commit() : result;
}

Result RestoreData(const std::string& user, const std::string& id, const Json::Value& data) {
  Database database;
  Row row;
  Json::Value stored;
  Result result = BeginOnRecord(database, user, id, &row);
  if (result == Result::kDone) result = ReadProperty(database, row, "data", &stored);
  if (result != Result::kDone || !stored.isNull()) return result;
  Json::Value values(Json::objectValue);
  values["data"] = data;
  Json::Value lists = TakeLongLists(&values["data"]);
  if (!lists.isNull()) values[kLongLists].swap(lists);
  result = WriteProperties(database, row, values);
  return result == Result::kDone ? database.Commit() : result;
}

Result RemoveRecord(const std::string& user, const std::string& id) {
  Database database;
  Row row;
  Result result = BeginOnRecord(database, user, id, &row);
  if (result == Result::kDone) result = CountIfStopped(database, row);
  if (result != Result::kDone) return result;
  result = Statement(database, "DELETE FROM properties WHERE task = ?").Bind(row.seq).Run();
  if (result == Result::kDone) {
    result = Statement(database, "DELETE FROM tasks WHERE seq = ?").Bind(row.seq).Run();
  }
  return result == Result::kDone ? database.Commit() : result;
}

Result RemoveOldRecords(const std::string& user, std::int64_t finished_before,
                        std::int64_t empty_before) {
  const std::string old =
      "FROM tasks WHERE (finished = 1 AND finished_at < ?) OR "
      "(created < ? AND NOT EXISTS (SELECT 1 FROM properties p WHERE "
      "p.task = tasks.seq AND p.name = 'data'))";
  Database database;
  Result result = database.Open(user);
  if (result != Result::kDone) return result;
  {
    // Mostly there is none, and who only looks keeps nobody out.
    Statement any(database, "SELECT 1 " + old + " LIMIT 1");
    if (!any.Bind(finished_before).Bind(empty_before).Next()) return any.result();
  }
  result = database.Begin();
  if (result != Result::kDone) return result;
  result = Statement(database, "DELETE " + old).Bind(finished_before).Bind(empty_before).Run();
  if (result == Result::kDone) {
    result = Statement(database, "DELETE FROM properties WHERE task NOT IN (SELECT seq FROM tasks)")
                 .Run();
  }
  return result == Result::kDone ? database.Commit() : result;
}

}  // namespace tasks::internal
