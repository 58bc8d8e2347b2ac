#include "totals.h"

#include <array>
#include <string>
#include <utility>

#include "tasks/store.h"

namespace tasks {
namespace internal {
namespace {

bool HasTotals(Database& database) {
  return Statement(database, "SELECT 1 FROM sqlite_schema WHERE name = 'totals'").Next();
}

}  // namespace

Result AddToTotal(Database& database, const char* name, std::int64_t number) {
  if (const Result made = database.EnsureTotals(); made != Result::kDone) return made;
  return Statement(database,
                   "INSERT INTO totals(name, value) VALUES(?, ?) "
                   "ON CONFLICT(name) DO UPDATE SET value = value + excluded.value")
      .Bind(std::string(name))
      .Bind(number)
      .Run();
}

}  // namespace internal

Totals ReadTotals(const std::string& user) {
  Totals totals;
  const std::array<std::pair<const char*, std::int64_t*>, 5> fields{
      {{internal::kTotalStarted, &totals.started},
       {internal::kTotalFinished, &totals.finished},
       {internal::kTotalFailed, &totals.failed},
       {internal::kTotalStopped, &totals.stopped},
       {internal::kTotalBytes, &totals.bytes}}};
  internal::Database database;
  if (database.Open(user) != internal::Result::kDone || !internal::HasTotals(database)) {
    return totals;
  }
  internal::Statement query(database, "SELECT name, value FROM totals");
  while (query.Next()) {
    for (const auto& [name, value] : fields) {
      if (query.Bytes(0) == name) *value = query.Integer(1);
    }
  }
  return totals;
}

}  // namespace tasks
