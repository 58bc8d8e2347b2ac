// One user's SQLite store, for a single operation.
//
// Invariants:
//  1. An operation that failed or was not committed takes its connection with it;
//     any other leaves it to the process's next one (connection.h).
//  2. A file with the name of a store always holds the whole schema: a new
//     store is built under another name and linked into place.
//  3. Every writing transaction begins IMMEDIATE, so it never has to upgrade a
//     read lock, which SQLite refuses without waiting.
//  4. All waits of one operation together end at its deadline.
//  5. A store that was last written before the machine started is checked before
//     it is written again: writes are not synced, so a power cut, unlike the
//     death of a process, may have damaged it.
#pragma once

#include <sqlite3.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "connection.h"

namespace tasks::internal {

enum class Result {
  kDone,
  kGone,   // no such record, or no store at all
  kTaken,  // the id is in use
  kBusy,   // another process held the store until the deadline
  kDamaged,
  kFailed,  // full, unreadable
};

// Longest time that one operation waits for other processes.
constexpr std::chrono::seconds kBusyTimeout{10};

// STATE/users/NAME/tasks.db; empty when the name cannot be a file name or the
// server has no state folder.
std::string StorePath(const std::string& user);

class Database {
 public:
  Database();
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // kGone when the user has no store.
  [[nodiscard]] Result Open(const std::string& user);
  // Makes the store when it is missing. One that a power cut has damaged is set
  // aside under another name first.
  [[nodiscard]] Result OpenOrCreate(const std::string& user);

  [[nodiscard]] Result Begin();
  // A transaction that is not committed is rolled back with the connection.
  [[nodiscard]] Result Commit();
  // Makes the table of totals where an earlier server's store lacks it.
  [[nodiscard]] Result EnsureTotals();

  // Null before the store was opened.
  [[nodiscard]] Connection* connection() const { return connection_.get(); }
  // Maps an SQLite code, and logs the ones that an administrator must look at.
  [[nodiscard]] Result ResultOf(int code);

 private:
  static int WaitForOthers(void* self, int attempt);
  // Whether a regular file has the path; errno tells what is there instead.
  [[nodiscard]] bool Look(const std::string& path);
  [[nodiscard]] Result OpenFile(const std::string& path);
  [[nodiscard]] Result OpenAnew(const std::string& user);
  [[nodiscard]] Result CheckFormat();
  [[nodiscard]] Result CheckIfOlderThanBoot();
  [[nodiscard]] Result Execute(const char* sql);

  std::unique_ptr<Connection> connection_;
  std::string path_;
  struct stat seen_ {};  // the store's file, as it was when this operation began
  bool checked_ = false;
  bool failed_ = false;
  std::chrono::steady_clock::time_point deadline_;
  int savedErrno_;  // what SQLite does to errno is nobody's business
};

// A prepared statement; parameters are bound in order.
class Statement {
 public:
  Statement(Database& database, std::string sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& Bind(std::int64_t value);
  Statement& Bind(std::optional<std::int64_t> value);
  Statement& Bind(const std::string& text);
  // Bytes that may be no valid text.
  Statement& BindBlob(const std::string& bytes);

  // Steps to the next row. False at the end and on failure; result() tells which.
  [[nodiscard]] bool Next();
  // Runs a statement that gives no rows.
  [[nodiscard]] Result Run();
  [[nodiscard]] Result result() const { return database_.ResultOf(code_); }

  [[nodiscard]] bool IsNull(int column) const;
  [[nodiscard]] std::int64_t Integer(int column) const;
  [[nodiscard]] std::optional<std::int64_t> OptionalInteger(int column) const;
  [[nodiscard]] std::string Bytes(int column) const;

 private:
  Database& database_;
  const std::string sql_;
  sqlite3_stmt* statement_ = nullptr;
  int code_ = SQLITE_OK;
  int bound_ = 0;
};

}  // namespace tasks::internal
