#include "support/search_index.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "core/config.h"
#include "sqlite_file.h"
#include "user_record.h"

namespace {

using support::SqliteFile;

struct Place {
  const std::string& share;
  const std::string& path;

  bool operator==(const Place& other) const { return share == other.share && path == other.path; }
};

bool IsPlainName(std::string_view name) {
  return !name.empty() && name.size() <= 200 && name != "." && name != ".." &&
         name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

std::string IndexFolder(const std::string& user) {
  const std::string folder = core::UserStateFolder(user);
  return folder.empty() ? std::string() : folder + "/search";
}

std::string IndexFile(const std::string& user, const std::string& volume) {
  const std::string folder = IndexFolder(user);
  return folder.empty() || !IsPlainName(volume) ? std::string() : folder + "/" + volume + ".db";
}

// What lies below a folder is the range between PATH"/" and PATH"0", the
// character after the slash; a pattern would take % and _ in names for wildcards.
constexpr const char* kDeleteTree =
    "DELETE FROM files WHERE share = ?1 AND (path = ?2 OR (path > ?2 || '/' AND path < ?2 || '0'))";
constexpr const char* kMoveBelow =
    "UPDATE OR REPLACE files SET share = ?3,"
    " path = ?4 || substr(path, length(?2) + 1)"
    " WHERE share = ?1 AND path > ?2 || '/' AND path < ?2 || '0'";
constexpr const char* kDeleteOne = "DELETE FROM files WHERE share = ?1 AND path = ?2";
constexpr const char* kPut =
    "INSERT OR REPLACE INTO files"
    " (share, path, folder, size, mtime, mode, uid, gid, task)"
    " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)";
constexpr const char* kCreate =
    "DROP TABLE IF EXISTS files;"
    "CREATE TABLE files (share TEXT NOT NULL, path TEXT NOT NULL, folder INTEGER NOT NULL,"
    " size INTEGER NOT NULL, mtime INTEGER NOT NULL, mode INTEGER NOT NULL,"
    " uid INTEGER NOT NULL, gid INTEGER NOT NULL, task TEXT NOT NULL,"
    " PRIMARY KEY (share, path)) WITHOUT ROWID";

bool Put(SqliteFile& db, const Place& place, const struct stat& st, const std::string& id) {
  auto statement = db.Prepare(kPut);
  return statement && statement.BindTexts({place.share, place.path}) &&
         statement.BindNumbers(
             3, {S_ISDIR(st.st_mode) ? 1 : 0, st.st_size, st.st_mtim.tv_sec,
                 static_cast<long long>(st.st_mode), static_cast<long long>(st.st_uid),
                 static_cast<long long>(st.st_gid)}) &&
         statement.BindText(9, id) && statement.Run();
}

bool Run(SqliteFile& db, const char* sql, std::initializer_list<std::string_view> texts) {
  auto statement = db.Prepare(sql);
  return statement && statement.BindTexts(texts) && statement.Run();
}

bool MoveTree(SqliteFile& db, const Place& from, const Place& to) {
  return Run(db, kMoveBelow, {from.share, from.path, to.share, to.path}) &&
         Run(db, kDeleteOne, {from.share, from.path});
}

}  // namespace

namespace FileSearch {

WfmSearchDBTask::WfmSearchDBTask(const std::string& user, const std::string& volume, std::string id)
    : file_(IndexFile(user, volume)), id_(std::move(id)) {}

bool WfmSearchDBTask::insertFile(const std::string& /*oldShare*/, const std::string& /*oldPath*/,
                                 const std::string& newShare, const std::string& newPath,
                                 TAVOSTAT& stat) {
  SqliteFile db;
  return db.Open(file_, false) && db.Execute("BEGIN IMMEDIATE") &&
         Put(db, {newShare, newPath}, stat.st, id_) && db.Execute("COMMIT");
}

bool WfmSearchDBTask::updateFile(const std::string& oldShare, const std::string& oldPath,
                                 const std::string& newShare, const std::string& newPath,
                                 TAVOSTAT& stat) {
  const Place from{oldShare, oldPath};
  const Place to{newShare, newPath};
  SqliteFile db;
  return db.Open(file_, false) && db.Execute("BEGIN IMMEDIATE") &&
         (from == to || MoveTree(db, from, to)) && Put(db, to, stat.st, id_) &&
         db.Execute("COMMIT");
}

bool WfmSearchDBTask::delRecs(const std::string& share, const std::string& path) {
  SqliteFile db;
  return db.Open(file_, false) && db.Execute("BEGIN IMMEDIATE") &&
         Run(db, kDeleteTree, {share, path}) && db.Execute("COMMIT");
}

WfmSearchDBTaskMgr::WfmSearchDBTaskMgr(const char* user) : user_(user ? user : "") {}

WfmSearchDBTask* WfmSearchDBTaskMgr::getDBTask(const std::string& volume, const std::string& id) {
  const std::string file = IndexFile(user_, volume);
  struct stat st {};
  if (file.empty() || !IsPlainName(id) || lstat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    return nullptr;
  }
  return std::make_unique<WfmSearchDBTask>(user_, volume, id).release();
}

}  // namespace FileSearch

namespace support {

bool CreateSearchIndex(const std::string& user, const std::string& volume) {
  const std::string file = IndexFile(user, volume);
  const UserRecord record = FindUser(user.c_str());
  // Another user's folder is no place for root's files, nor for links that root follows.
  if (file.empty() || !record || geteuid() != record->uid) return false;
  if (!core::EnsureUserStateFolder(user, record->uid, record->gid)) return false;
  const std::string folder = IndexFolder(user);
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
  SqliteFile db;
  return db.Open(file, true) && db.Execute("BEGIN IMMEDIATE") && db.Execute(kCreate) &&
         db.Execute("COMMIT");
}

}  // namespace support
