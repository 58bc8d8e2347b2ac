// The file-search index: per user and volume one SQLite database with one
// table, keyed by (share, path).
#pragma once

#include <memory>
#include <string>

#include "core/file.h"

namespace FileSearch {

// One index. Every call opens the database anew and is one transaction. A folder
// stands for all below it: its records follow when it is moved or deleted. False
// on failure, which changes nothing.
class WfmSearchDBTask {
 public:
  WfmSearchDBTask(const std::string& user, const std::string& volume, std::string id);
  // Adds a record for the new place.
  bool insertFile(const std::string& oldShare, const std::string& oldPath,
                  const std::string& newShare, const std::string& newPath, TAVOSTAT& stat);
  // Moves the record (and those below it) from the old to the new place and
  // gives it the new stat; inserts it when there was none.
  bool updateFile(const std::string& oldShare, const std::string& oldPath,
                  const std::string& newShare, const std::string& newPath, TAVOSTAT& stat);
  // Deletes the record and all below it.
  bool delRecs(const std::string& share, const std::string& path);

 private:
  std::string file_;
  std::string id_;
};

class WfmSearchDBTaskMgr {
 public:
  explicit WfmSearchDBTaskMgr(const char* user);
  // The index, owned by the caller; null when the volume or id is no plain name
  // or there is no such database.
  WfmSearchDBTask* getDBTask(const std::string& volume, const std::string& id);

 private:
  std::string user_;
};

}  // namespace FileSearch

namespace support {

// Makes an empty index, as a search that starts does; the process must be the
// user. False on failure.
[[nodiscard]] bool CreateSearchIndex(const std::string& user, const std::string& volume);

}  // namespace support
