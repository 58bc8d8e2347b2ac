// A store of SQLite, changed behind its library's back.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

// Runs the statements; the values of each row of what they answer.
inline std::vector<std::vector<std::string>> Sql(const std::string& file, const std::string& text) {
  std::vector<std::vector<std::string>> rows;
  const auto add = [](void* out, int count, char** values, char**) {
    auto& row = static_cast<std::vector<std::vector<std::string>>*>(out)->emplace_back();
    for (int i = 0; i < count; ++i) row.emplace_back(values[i] == nullptr ? "" : values[i]);
    return 0;
  };
  sqlite3* store = nullptr;
  EXPECT_EQ(sqlite3_open_v2(file.c_str(), &store, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(store, text.c_str(), add, &rows, nullptr), SQLITE_OK)
      << sqlite3_errmsg(store);
  sqlite3_close(store);
  return rows;
}
