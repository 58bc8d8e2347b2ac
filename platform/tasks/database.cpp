#include "database.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <thread>
#include <utility>

#include "core/config.h"
#include "core/unique_fd.h"
#include "core/user.h"
#include "tasks/store.h"

namespace tasks::internal {
namespace {

constexpr int kFormat = 1;

// Came later than the rest; servers that do not know it leave it alone.
constexpr const char* kTotals =
    "CREATE TABLE IF NOT EXISTS totals(name TEXT PRIMARY KEY, value INTEGER NOT NULL);";

constexpr const char* kSchema = R"(
CREATE TABLE tasks(
  seq INTEGER PRIMARY KEY,
  id TEXT NOT NULL UNIQUE,
  created INTEGER NOT NULL,
  finished INTEGER NOT NULL DEFAULT 0,
  finished_at INTEGER,
  pid INTEGER,
  pid_start INTEGER);
CREATE TABLE properties(
  task INTEGER NOT NULL REFERENCES tasks(seq),
  name TEXT NOT NULL,
  value BLOB NOT NULL,
  PRIMARY KEY(task, name));
CREATE TABLE notifications(
  seq INTEGER PRIMARY KEY AUTOINCREMENT,
  time INTEGER NOT NULL,
  app BLOB NOT NULL,
  taskid BLOB NOT NULL,
  category BLOB NOT NULL,
  title BLOB NOT NULL,
  args BLOB NOT NULL);
PRAGMA user_version = 1;
)";

// Room that a new store takes at once, as free pages and as journal, so that a
// task can still be written down and finished when a copy has filled the file
// system that holds the stores.
constexpr const char* kSpareRoom =
    "CREATE TABLE spare(bytes BLOB); INSERT INTO spare VALUES(zeroblob(131072)); DROP TABLE spare;";
constexpr std::size_t kJournalReserve = 262144;

// The journal file stays and is overwritten in place, with its header cleared
// as the commit: no file is made or deleted per write, and unlike the shared
// memory file of a write-ahead log it needs no new room to be used.
//
// Nothing is synced. What a process has written is the kernel's, so the journal
// brings back a whole store whenever a process dies. Three syncs per write took
// 20 ms and more where a write takes 0.1 ms, and a task writes for each file
// that fails. A power cut ends every worker, and with it the use of what the
// last seconds' writes said; damage it may do is found by CheckIfOlderThanBoot.
constexpr const char* kSettings =
    "PRAGMA journal_mode = PERSIST; PRAGMA journal_size_limit = 1048576; "
    "PRAGMA synchronous = OFF;";

bool IsRegularFile(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// Makes a file that is not there yet, for the folder's owner.
core::UniqueFd MakeFile(const std::string& folder, const std::string& path) {
  struct stat owner {};
  if (lstat(folder.c_str(), &owner) != 0) return {};
  core::UniqueFd file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (file && geteuid() == 0 && fchown(file.get(), owner.st_uid, owner.st_gid) != 0) return {};
  return file;
}

// A journal of zeros is an idle one. It is linked whole, for the next writer may
// use it at once. Short of room from the start, the journal grows as it can.
void ReserveJournal(const std::string& folder, const std::string& fresh, const std::string& path) {
  const core::UniqueFd file = MakeFile(folder, fresh);
  const std::string zeros(kJournalReserve, '\0');
  if (file && write(file.get(), zeros.data(), zeros.size()) > 0) {
    (void)(link(fresh.c_str(), path.c_str()) != 0);
  }
  unlink(fresh.c_str());
}

bool FillNewStore(const std::string& path) {
  sqlite3* handle = nullptr;
  int code =
      sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (code == SQLITE_OK) {
    const std::string script = std::string("PRAGMA journal_mode = MEMORY; BEGIN;") + kSchema +
                               kSpareRoom + kTotals + "COMMIT;";
    code = sqlite3_exec(handle, script.c_str(), nullptr, nullptr, nullptr);
  }
  sqlite3_close(handle);
  return code == SQLITE_OK;
}

bool MakeStore(const std::string& user) {
  uid_t uid = geteuid();
  gid_t gid = getegid();
  if (uid == 0) {
    // An account that the system does not know keeps a store of the server's own.
    (void)TAVOUserGetUGID(user.c_str(), &uid, &gid);
  }
  if (!core::EnsureUserStateFolder(user, uid, gid)) return false;

  std::uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) return false;
  const std::string path = StorePath(user);
  const std::string folder = core::UserStateFolder(user);
  const std::string fresh = path + ".new-" + std::to_string(number);
  const bool filled = MakeFile(folder, fresh).valid() && FillNewStore(fresh);
  if (filled) {
    ReserveJournal(folder, fresh + ".idle", path + "-journal");
    (void)(link(fresh.c_str(), path.c_str()) != 0);
  }
  unlink(fresh.c_str());
  // Another process may have been faster.
  return IsRegularFile(path);
}

bool LastWrittenBeforeBoot(const struct stat& status) {
  timespec now{};
  timespec up{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0 || clock_gettime(CLOCK_BOOTTIME, &up) != 0) {
    return false;
  }
  return status.st_mtim.tv_sec < now.tv_sec - up.tv_sec;
}

bool LastWrittenBeforeBoot(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && LastWrittenBeforeBoot(status);
}

// Renames a damaged store, unless another process was faster. Its journal goes
// first: it must never be taken for that of the next store.
void SetAside(const std::string& folder, const std::string& path) {
  const core::UniqueFd lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock || flock(lock.get(), LOCK_EX) != 0 || !LastWrittenBeforeBoot(path)) return;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const std::string aside =
      path + ".damaged-" + std::to_string(now.tv_sec) + "." + std::to_string(now.tv_nsec);
  syslog(LOG_ERR, "%s:%d Task store %s is damaged and kept as %s", "database.cpp", __LINE__,
         path.c_str(), aside.c_str());
  rename((path + "-journal").c_str(), (aside + "-journal").c_str());
  rename(path.c_str(), aside.c_str());
}

}  // namespace

}  // namespace tasks::internal

void tasks::WarmUp() {
  using tasks::internal::kSchema;
  sqlite3* handle = nullptr;
  if (sqlite3_open_v2(":memory:", &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) ==
      SQLITE_OK) {
    (void)sqlite3_exec(handle, kSchema, nullptr, nullptr, nullptr);
    (void)sqlite3_exec(handle,
                       "BEGIN IMMEDIATE; INSERT INTO tasks(id, created) VALUES('', 0);"
                       "SELECT p.name, p.value, t.finished FROM tasks t LEFT JOIN properties p "
                       "ON p.task = t.seq WHERE t.id = ''; COMMIT;",
                       nullptr, nullptr, nullptr);
  }
  sqlite3_close(handle);
}

namespace tasks::internal {

std::string StorePath(const std::string& user) {
  const std::string folder = core::UserStateFolder(user);
  return folder.empty() ? std::string() : folder + "/tasks.db";
}

Database::Database() : savedErrno_(errno) {}

Database::~Database() {
  if (connection_ && !failed_ && sqlite3_get_autocommit(connection_->handle()) != 0) {
    sqlite3_busy_handler(connection_->handle(), nullptr, nullptr);
    Keep(std::move(connection_));
  }
  connection_.reset();
  errno = savedErrno_;
}

int Database::WaitForOthers(void* self, int /*attempt*/) {
  const auto* database = static_cast<Database*>(self);
  const auto now = std::chrono::steady_clock::now();
  if (now >= database->deadline_) return 0;
  // A write takes a tenth of a millisecond, and one of a long request some milliseconds.
  using Microseconds = std::chrono::microseconds;
  const auto waited =
      std::chrono::duration_cast<Microseconds>(now - (database->deadline_ - kBusyTimeout));
  std::this_thread::sleep_for(std::clamp(waited / 8, Microseconds(100), Microseconds(20'000)));
  return 1;
}

bool Database::Look(const std::string& path) {
  if (lstat(path.c_str(), &seen_) != 0) return false;
  errno = EINVAL;
  return S_ISREG(seen_.st_mode);
}

Result Database::OpenFile(const std::string& path) {
  path_ = path;
  deadline_ = std::chrono::steady_clock::now() + kBusyTimeout;
  connection_ = TakeKept(path, seen_);
  if (!connection_) {
    connection_ = std::make_unique<Connection>();
    const int code = connection_->Open(path, seen_);
    if (code != SQLITE_OK) return ResultOf(code);
  }
  sqlite3_busy_handler(connection_->handle(), &Database::WaitForOthers, this);
  return Result::kDone;
}

Result Database::Open(const std::string& user) {
  const std::string path = StorePath(user);
  if (path.empty()) return Result::kGone;
  if (!Look(path)) return errno == ENOENT ? Result::kGone : Result::kFailed;
  return OpenFile(path);
}

Result Database::OpenOrCreate(const std::string& user) {
  const std::string path = StorePath(user);
  if (path.empty()) return Result::kFailed;
  Result result = Look(path) ? OpenFile(path) : OpenAnew(user);
  if (result == Result::kDone) result = CheckIfOlderThanBoot();
  if (result == Result::kDamaged && LastWrittenBeforeBoot(path)) {
    connection_.reset();
    SetAside(core::UserStateFolder(user), path);
    failed_ = false;
    result = OpenAnew(user);
  }
  return result == Result::kDone ? CheckFormat() : result;
}

Result Database::OpenAnew(const std::string& user) {
  const std::string path = StorePath(user);
  return MakeStore(user) && Look(path) ? OpenFile(path) : Result::kFailed;
}

// A newer server's store is not ours to write.
Result Database::CheckFormat() {
  if (connection_->format_known) return Result::kDone;
  Statement format(*this, "PRAGMA user_version");
  if (!format.Next()) return format.result();
  connection_->format_known = format.Integer(0) == kFormat;
  return connection_->format_known ? Result::kDone : Result::kFailed;
}

Result Database::CheckIfOlderThanBoot() {
  if (checked_ || !LastWrittenBeforeBoot(seen_)) return Result::kDone;
  Statement check(*this, "PRAGMA quick_check(1)");
  if (!check.Next()) return check.result();
  checked_ = check.Bytes(0) == "ok";
  return checked_ ? Result::kDone : Result::kDamaged;
}

Result Database::Execute(const char* sql) { return Statement(*this, sql).Run(); }

Result Database::EnsureTotals() {
  if (connection_->totals_made) return Result::kDone;
  const Result result = Execute(kTotals);
  connection_->totals_made = result == Result::kDone;
  return result;
}

Result Database::Begin() {
  if (!connection_->settings_made) {
    const int code = sqlite3_exec(connection_->handle(), kSettings, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) return ResultOf(code);
    connection_->settings_made = true;
  }
  if (const Result checked = CheckIfOlderThanBoot(); checked != Result::kDone) return checked;
  return Execute("BEGIN IMMEDIATE");
}

Result Database::Commit() { return Execute("COMMIT"); }

Result Database::ResultOf(int code) {
  const int primary = code & 0xFF;
  failed_ = failed_ || (primary != SQLITE_OK && primary != SQLITE_ROW && primary != SQLITE_DONE);
  switch (primary) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
      return Result::kDone;
    case SQLITE_CONSTRAINT:
      return Result::kTaken;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return Result::kBusy;
    default:
      syslog(LOG_ERR, "%s:%d Task store %s: %s", "database.cpp", __LINE__, path_.c_str(),
             connection_ && connection_->handle() != nullptr ? sqlite3_errmsg(connection_->handle())
                                                             : sqlite3_errstr(code));
      return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB ? Result::kDamaged
                                                                   : Result::kFailed;
  }
}

Statement::Statement(Database& database, std::string sql)
    : database_(database), sql_(std::move(sql)) {
  statement_ = database.connection()->TakeStatement(sql_, &code_);
}

Statement::~Statement() { database_.connection()->GiveBack(sql_, statement_); }

// Binding to a statement that could not be prepared is a harmless misuse error;
// the preparation's own code is the one to keep.
Statement& Statement::Bind(std::int64_t value) {
  if (statement_ != nullptr) sqlite3_bind_int64(statement_, ++bound_, value);
  return *this;
}

Statement& Statement::Bind(std::optional<std::int64_t> value) {
  if (value) return Bind(*value);
  if (statement_ != nullptr) sqlite3_bind_null(statement_, ++bound_);
  return *this;
}

Statement& Statement::Bind(const std::string& text) {
  if (statement_ == nullptr) return *this;
  const int code = sqlite3_bind_text64(statement_, ++bound_, text.data(), text.size(),
                                       SQLITE_TRANSIENT, SQLITE_UTF8);
  if (code != SQLITE_OK) code_ = code;
  return *this;
}

Statement& Statement::BindBlob(const std::string& bytes) {
  if (statement_ == nullptr) return *this;
  const int code =
      sqlite3_bind_blob64(statement_, ++bound_, bytes.data(), bytes.size(), SQLITE_TRANSIENT);
  if (code != SQLITE_OK) code_ = code;
  return *this;
}

bool Statement::Next() {
  if (statement_ == nullptr || (code_ != SQLITE_OK && code_ != SQLITE_ROW)) return false;
  code_ = sqlite3_step(statement_);
  return code_ == SQLITE_ROW;
}

Result Statement::Run() {
  while (Next()) {
  }
  return result();
}

bool Statement::IsNull(int column) const {
  return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

std::int64_t Statement::Integer(int column) const {
  return sqlite3_column_int64(statement_, column);
}

std::optional<std::int64_t> Statement::OptionalInteger(int column) const {
  if (IsNull(column)) return std::nullopt;
  return Integer(column);
}

std::string Statement::Bytes(int column) const {
  const void* bytes = sqlite3_column_blob(statement_, column);
  const int size = sqlite3_column_bytes(statement_, column);
  if (bytes == nullptr || size <= 0) return {};
  return {static_cast<const char*>(bytes), static_cast<std::size_t>(size)};
}

}  // namespace tasks::internal
