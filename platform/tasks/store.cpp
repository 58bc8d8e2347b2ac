#include "tasks/store.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>

#include "core/config.h"
#include "database.h"
#include "json_text.h"
#include "long_lists.h"

namespace tasks {
namespace {

constexpr const char* kColumns =
    "SELECT t.id, t.finished, t.created, d.value, p.value, l.value FROM tasks t "
    "LEFT JOIN properties d ON d.task = t.seq AND d.name = 'data' "
    "LEFT JOIN properties p ON p.task = t.seq AND p.name = 'progress' "
    "LEFT JOIN properties l ON l.task = t.seq AND l.name = ? ";

Record RecordOf(const internal::Statement& row) {
  Record record;
  record.id = row.Bytes(0);
  record.finished = row.Integer(1) != 0;
  record.created = row.Integer(2);
  if (!row.IsNull(3)) record.data = internal::TextToJson(row.Bytes(3));
  if (!row.IsNull(5)) internal::PutLongLists(row.Bytes(5), &record.data);
  const Json::Value progress = internal::TextToJson(row.Bytes(4));
  if (progress.isNumeric()) record.progress = progress.asDouble();
  return record;
}

}  // namespace

std::vector<Record> List(const std::string& user) {
  std::vector<Record> records;
  internal::Database database;
  if (database.Open(user) != internal::Result::kDone) return records;
  internal::Statement query(database, std::string(kColumns) + "ORDER BY t.seq");
  query.Bind(std::string(internal::kLongLists));
  while (query.Next()) records.push_back(RecordOf(query));
  return records;
}

bool Read(const std::string& user, const std::string& id, Record* out) {
  internal::Database database;
  if (database.Open(user) != internal::Result::kDone) return false;
  internal::Statement query(database, std::string(kColumns) + "WHERE t.id = ?");
  query.Bind(std::string(internal::kLongLists)).Bind(id);
  if (!query.Next()) return false;
  *out = RecordOf(query);
  return true;
}

void Prepare(const std::string& user) {
  struct stat status {};
  if (const std::string path = internal::StorePath(user);
      path.empty() || lstat(path.c_str(), &status) == 0) {
    return;
  }
  internal::Database database;
  // Whoever needs it tries again, and says what is wrong.
  (void)database.OpenOrCreate(user);
}

std::vector<std::string> UsersWithStore() {
  std::vector<std::string> users;
  const std::string& state = core::CurrentConfig().server.state;
  if (state.empty()) return users;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir((state + "/users").c_str()), &closedir);
  if (!folder) return users;
  while (const dirent* entry = readdir(folder.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    const std::string path = internal::StorePath(name);
    struct stat status {};
    if (!path.empty() && lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      users.push_back(name);
    }
  }
  std::sort(users.begin(), users.end());
  return users;
}

}  // namespace tasks
