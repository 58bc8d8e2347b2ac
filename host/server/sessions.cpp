#include "sessions.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "core/unique_fd.h"
#include "tokens.h"

namespace host {
namespace {

constexpr int kSecretBits = 256;
constexpr int kNameBits = 64;
constexpr int kBusyMs = 5000;
// A use is written down at most this often.
constexpr std::int64_t kUseStep = 60;

constexpr const char* kSchema = R"(
PRAGMA journal_mode = WAL;
PRAGMA synchronous = NORMAL;
CREATE TABLE IF NOT EXISTS sessions(
  digest BLOB PRIMARY KEY,
  kind INTEGER NOT NULL,
  user BLOB NOT NULL,
  name BLOB NOT NULL,
  created INTEGER NOT NULL,
  used INTEGER NOT NULL) WITHOUT ROWID;
)";

std::string DigestOf(const std::string& text) {
  std::string digest(SHA256_DIGEST_LENGTH, '\0');
  SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(),
         reinterpret_cast<unsigned char*>(digest.data()));
  return digest;
}

// Follows from the secret, so that it need not be kept, and does not lead back to it.
std::string CsrfOf(const std::string& secret) {
  static constexpr std::array<unsigned char, 4> kUse{'c', 's', 'r', 'f'};
  std::array<unsigned char, EVP_MAX_MD_SIZE> code{};
  unsigned size = 0;
  HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()), kUse.data(), kUse.size(),
       code.data(), &size);
  return HexOf({reinterpret_cast<const char*>(code.data()), size});
}

std::int64_t SecondsOf(Sessions::Clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

}  // namespace

// One connection to the file.
class Sessions::Store {
 public:
  Store() = default;
  ~Store() { ::sqlite3_close(handle_); }
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  bool Open(const std::string& file, std::string* err) {
    // Made first, so that it never has another mode.
    const core::UniqueFd made(
        ::open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!made) {
      *err = file + ": " + ::strerror(errno);
      return false;
    }
    const bool good =
        ::sqlite3_open_v2(file.c_str(), &handle_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                          nullptr) == SQLITE_OK &&
        ::sqlite3_busy_timeout(handle_, kBusyMs) == SQLITE_OK &&
        ::sqlite3_exec(handle_, kSchema, nullptr, nullptr, nullptr) == SQLITE_OK;
    if (!good) *err = file + ": " + ::sqlite3_errmsg(handle_);
    return good;
  }

  // Runs one statement; texts are bound as blobs where `blob` says so. `row` is called
  // for each row. False, with a line in the log, when it failed.
  template <typename Row>
  bool Run(const char* sql, const std::vector<std::string>& texts,
           const std::vector<std::int64_t>& numbers, Row row) {
    sqlite3_stmt* statement = nullptr;
    int code = ::sqlite3_prepare_v2(handle_, sql, -1, &statement, nullptr);
    int at = 1;
    for (const std::string& text : texts) {
      if (code != SQLITE_OK) break;
      code = ::sqlite3_bind_blob(statement, at++, text.data(), static_cast<int>(text.size()),
                                 SQLITE_TRANSIENT);
    }
    for (const std::int64_t number : numbers) {
      if (code == SQLITE_OK) code = ::sqlite3_bind_int64(statement, at++, number);
    }
    if (code == SQLITE_OK) {
      while ((code = ::sqlite3_step(statement)) == SQLITE_ROW) row(statement);
    }
    if (code != SQLITE_DONE) {
      ::syslog(LOG_ERR, "the store of sessions failed: %s", ::sqlite3_errmsg(handle_));
    }
    ::sqlite3_finalize(statement);
    return code == SQLITE_DONE;
  }

  bool Run(const char* sql, const std::vector<std::string>& texts,
           const std::vector<std::int64_t>& numbers) {
    return Run(sql, texts, numbers, [](sqlite3_stmt*) {});
  }

 private:
  sqlite3* handle_ = nullptr;
};

namespace {

std::string TextAt(sqlite3_stmt* statement, int column) {
  const auto* bytes = static_cast<const char*>(::sqlite3_column_blob(statement, column));
  return {bytes != nullptr ? bytes : "",
          static_cast<std::size_t>(::sqlite3_column_bytes(statement, column))};
}

}  // namespace

Sessions::Sessions() = default;
Sessions::~Sessions() = default;

bool Sessions::Open(const std::string& file, std::chrono::seconds idle, std::chrono::seconds life,
                    std::string* err) {
  auto store = std::make_unique<Store>();
  if (!store->Open(file, err)) return false;
  store_ = std::move(store);
  idle_ = idle.count();
  life_ = life.count();
  return true;
}

std::string Sessions::Start(const std::string& user, SessionKind kind, Clock::time_point now) {
  const std::string secret = RandomHex(kSecretBits);
  const std::string name = RandomHex(kNameBits);
  const std::lock_guard lock(mutex_);
  if (!store_ || secret.empty() || name.empty()) return {};
  const std::int64_t time = SecondsOf(now);
  const bool kept =
      store_->Run("DELETE FROM sessions WHERE used < ?1 OR created < ?2", {},
                  {time - idle_, time - life_}) &&
      store_->Run(
          "DELETE FROM sessions WHERE user = ?1 AND digest NOT IN (SELECT digest FROM "
          "sessions WHERE user = ?1 ORDER BY used DESC LIMIT ?2)",
          {user}, {kMaxOfUser - 1}) &&
      store_->Run(
          "INSERT INTO sessions(digest, user, name, kind, created, used) "
          "VALUES(?1, ?2, ?3, ?4, ?5, ?5)",
          {DigestOf(secret), user, name}, {static_cast<std::int64_t>(kind), time});
  return kept ? secret : std::string();
}

std::optional<Session> Sessions::Find(const std::string& secret, SessionKind kind,
                                      Clock::time_point now) {
  if (secret.empty()) return std::nullopt;
  const std::string digest = DigestOf(secret);
  const std::int64_t time = SecondsOf(now);
  const std::lock_guard lock(mutex_);
  if (!store_) return std::nullopt;
  std::optional<Session> session;
  std::int64_t used = 0;
  const bool read = store_->Run(
      "SELECT user, name, used FROM sessions "
      "WHERE digest = ?1 AND kind = ?2 AND used >= ?3 AND created >= ?4",
      {digest}, {static_cast<std::int64_t>(kind), time - idle_, time - life_},
      [&](sqlite3_stmt* row) {
        session = Session{TextAt(row, 0), "", TextAt(row, 1)};
        used = ::sqlite3_column_int64(row, 2);
      });
  if (!read || !session) return std::nullopt;
  if (time - used >= kUseStep) {
    // A use that cannot be written down ends the session earlier; nothing else.
    static_cast<void>(
        store_->Run("UPDATE sessions SET used = ?2 WHERE digest = ?1", {digest}, {time}));
  }
  session->csrf = CsrfOf(secret);
  return session;
}

bool Sessions::End(const std::string& secret) {
  const std::lock_guard lock(mutex_);
  return store_ != nullptr &&
         store_->Run("DELETE FROM sessions WHERE digest = ?1", {DigestOf(secret)}, {});
}

bool Sessions::EndAll(const std::string& user) {
  const std::lock_guard lock(mutex_);
  return store_ != nullptr && store_->Run("DELETE FROM sessions WHERE user = ?1", {user}, {});
}

}  // namespace host
