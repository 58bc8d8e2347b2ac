// Thin owners of an SQLite database and a statement.
#pragma once

#include <sqlite3.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace support {

class SqliteStatement {
 public:
  explicit SqliteStatement(sqlite3_stmt* statement) : statement_(statement) {}
  explicit operator bool() const { return statement_ != nullptr; }

  // Parameters count from 1. The text must outlive Run.
  bool BindText(int index, std::string_view text);
  bool BindTexts(std::initializer_list<std::string_view> texts);
  bool BindNumbers(int first, std::initializer_list<long long> numbers);
  // Runs a statement that gives no rows.
  bool Run();

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// One connection. A transaction that is not committed ends with it.
class SqliteFile {
 public:
  [[nodiscard]] bool Open(const std::string& file, bool create);
  [[nodiscard]] bool Execute(const char* sql);
  // A false statement when the text is no SQL.
  [[nodiscard]] SqliteStatement Prepare(const char* sql);

 private:
  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
  };
  std::unique_ptr<sqlite3, Close> db_;
};

}  // namespace support
