#include "connection.h"

#include <pthread.h>
#include <unistd.h>

#include <mutex>
#include <utility>

namespace tasks::internal {
namespace {

struct Slot {
  std::mutex mutex;
  std::unique_ptr<Connection> kept;
  const Connection* of_parent = nullptr;  // not this process's: never touched
};

Slot& TheSlot() {
  static Slot slot;
  return slot;
}

void Lock() { TheSlot().mutex.lock(); }
void Unlock() { TheSlot().mutex.unlock(); }

void ForgetAndUnlock() {
  Slot& slot = TheSlot();
  if (slot.kept) slot.of_parent = slot.kept.release();
  slot.mutex.unlock();
}

// Without this nothing is kept.
bool ForksAreWatched() {
  static const bool watched = pthread_atfork(Lock, Unlock, ForgetAndUnlock) == 0;
  return watched;
}

}  // namespace

Connection::~Connection() {
  for (const auto& [sql, statement] : idle_) sqlite3_finalize(statement);
  sqlite3_close(handle_);
}

int Connection::Open(const std::string& path, const struct stat& seen) {
  path_ = path;
  device_ = seen.st_dev;
  inode_ = seen.st_ino;
  user_ = geteuid();
  return sqlite3_open_v2(path.c_str(), &handle_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                         nullptr);
}

// The open file's number belongs to no other one.
bool Connection::IsOf(const std::string& path, const struct stat& seen) const {
  return path == path_ && seen.st_dev == device_ && seen.st_ino == inode_ && geteuid() == user_;
}

sqlite3_stmt* Connection::TakeStatement(const std::string& sql, int* code) {
  *code = SQLITE_OK;
  if (const auto found = idle_.find(sql); found != idle_.end()) {
    return idle_.extract(found).mapped();
  }
  sqlite3_stmt* statement = nullptr;
  *code =
      sqlite3_prepare_v3(handle_, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  return statement;
}

void Connection::GiveBack(const std::string& sql, sqlite3_stmt* statement) {
  if (statement == nullptr) return;
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  // Two of the same may have been out.
  if (!idle_.emplace(sql, statement).second) sqlite3_finalize(statement);
}

std::unique_ptr<Connection> TakeKept(const std::string& path, const struct stat& seen) {
  std::unique_ptr<Connection> taken;
  {
    const std::lock_guard lock(TheSlot().mutex);
    taken = std::move(TheSlot().kept);
  }
  if (taken && !taken->IsOf(path, seen)) taken.reset();
  return taken;
}

void Keep(std::unique_ptr<Connection> connection) {
  if (!ForksAreWatched()) return;
  sqlite3_db_release_memory(connection->handle());
  const std::lock_guard lock(TheSlot().mutex);
  // Of two threads' connections either will do; the other one is closed here.
  std::swap(TheSlot().kept, connection);
}

}  // namespace tasks::internal
