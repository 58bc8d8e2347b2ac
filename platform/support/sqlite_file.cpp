#include "sqlite_file.h"

namespace support {

namespace {
constexpr int kBusyMilliseconds = 10'000;
}

bool SqliteStatement::BindText(int index, std::string_view text) {
  return sqlite3_bind_text(statement_.get(), index, text.data(), static_cast<int>(text.size()),
                           SQLITE_STATIC) == SQLITE_OK;
}

bool SqliteStatement::BindTexts(std::initializer_list<std::string_view> texts) {
  int index = 0;
  for (const std::string_view text : texts) {
    if (!BindText(++index, text)) return false;
  }
  return true;
}

bool SqliteStatement::BindNumbers(int first, std::initializer_list<long long> numbers) {
  for (const long long number : numbers) {
    if (sqlite3_bind_int64(statement_.get(), first++, number) != SQLITE_OK) return false;
  }
  return true;
}

bool SqliteStatement::Run() { return sqlite3_step(statement_.get()) == SQLITE_DONE; }

bool SqliteFile::Open(const std::string& file, bool create) {
  if (file.empty()) return false;
  const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0);
  sqlite3* db = nullptr;
  const int result = sqlite3_open_v2(file.c_str(), &db, flags, nullptr);
  db_.reset(db);
  return result == SQLITE_OK && sqlite3_busy_timeout(db, kBusyMilliseconds) == SQLITE_OK;
}

bool SqliteFile::Execute(const char* sql) {
  return sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

SqliteStatement SqliteFile::Prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db_.get(), sql, -1, &statement, nullptr) != SQLITE_OK) statement = nullptr;
  return SqliteStatement(statement);
}

}  // namespace support
