// An open store, and the one that a process keeps for its next operation.
//
// Opening a store and reading its schema takes several times as long as most operations
// on it, so one connection stays open between them, with its prepared statements.
//
// Invariants:
//  1. What is kept holds no lock, no transaction and no page of the file: each operation
//     reads the file as it is by then.
//  2. What is kept is used only while its file still has the name, and by the same user.
//  3. After a fork what is kept is the parent's alone. The child neither uses nor closes it, as
//     either would do something to the parent's; its memory is lost to the child.
#pragma once

#include <sqlite3.h>
#include <sys/stat.h>

#include <map>
#include <memory>
#include <string>

namespace tasks::internal {

class Connection {
 public:
  Connection() = default;
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // `seen`: what had the name before. An SQLite code.
  [[nodiscard]] int Open(const std::string& path, const struct stat& seen);
  [[nodiscard]] bool IsOf(const std::string& path, const struct stat& seen) const;
  [[nodiscard]] sqlite3* handle() const { return handle_; }

  // A statement that nobody else has until it is given back. Null with *code set.
  [[nodiscard]] sqlite3_stmt* TakeStatement(const std::string& sql, int* code);
  void GiveBack(const std::string& sql, sqlite3_stmt* statement);

  // What need be done only once.
  bool settings_made = false;
  bool format_known = false;
  bool totals_made = false;

 private:
  sqlite3* handle_ = nullptr;
  std::map<std::string, sqlite3_stmt*> idle_;  // by their text
  std::string path_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  uid_t user_ = 0;
};

// The kept connection when it is to this file; otherwise null, and it is closed.
std::unique_ptr<Connection> TakeKept(const std::string& path, const struct stat& seen);

// Keeps a connection without open statements or transaction.
void Keep(std::unique_ptr<Connection> connection);

}  // namespace tasks::internal
