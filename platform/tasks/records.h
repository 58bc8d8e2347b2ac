// The stored records: each function is one operation on one store.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "database.h"

namespace tasks::internal {

// A record that got no data within this time never will.
constexpr std::int64_t kSecondsWithoutData = 600;

// Row of a record inside an open transaction.
struct Row {
  std::int64_t seq = 0;
  std::int64_t created = 0;
  bool finished = false;
  std::optional<std::int64_t> pid;
  std::optional<std::int64_t> pid_start;  // unset: the process was gone when it was recorded
};

// By the property's name.
using StoredTexts = std::map<std::string, std::string>;

[[nodiscard]] Result CreateRecord(const std::string& user, const std::string& id);

// The properties, an object, and whether the record is finished, as of one moment.
// On failure *properties is an empty object and *finished false. *texts are the
// stored texts of *properties, of the load before and then of this one: what is
// stored as it was need not be parsed again. Long lists (long_lists.h) are left out; their
// name is among *texts when there are any.
[[nodiscard]] Result LoadRecord(const std::string& user, const std::string& id,
                                Json::Value* properties, bool* finished, StoredTexts* texts);

// Puts the record's long lists into `data`.
[[nodiscard]] Result LoadLongLists(const std::string& user, const std::string& id,
                                   Json::Value* data);

[[nodiscard]] Result AskFinished(const std::string& user, const std::string& id, bool* finished);

// What the totals are to know of a task's end.
struct End {
  // Transferred; unset: what the "data" written with the end reports.
  std::optional<std::int64_t> bytes;
};

// Writes the members of `values` as properties, and with `end` marks the
// record finished, in one transaction. *written gets their texts.
[[nodiscard]] Result WriteRecord(const std::string& user, const std::string& id,
                                 const Json::Value& values, const std::optional<End>& end,
                                 StoredTexts* written);

// Writes `data` only if the record's own is missing or damaged.
[[nodiscard]] Result RestoreData(const std::string& user, const std::string& id,
                                 const Json::Value& data);

[[nodiscard]] Result RemoveRecord(const std::string& user, const std::string& id);

// Removes finished records that ended before `finished_before` and records
// without data made before `empty_before` (seconds since the epoch).
[[nodiscard]] Result RemoveOldRecords(const std::string& user, std::int64_t finished_before,
                                      std::int64_t empty_before);

// Parts of the above, for use inside a transaction.
[[nodiscard]] Result FindRow(Database& database, const std::string& id, Row* row);
[[nodiscard]] Result ReadProperty(Database& database, const Row& row, const char* name,
                                  Json::Value* value);
[[nodiscard]] Result WriteProperties(Database& database, const Row& row, const Json::Value& values,
                                     StoredTexts* written = nullptr);
// `values`: the properties written with it, which say whether the task failed.
[[nodiscard]] Result MarkFinished(Database& database, const Row& row, const Json::Value& values,
                                  const End& end);

}  // namespace tasks::internal
