// Background-task records.
//
// A record lives in its user's store, one SQLite database per user. Nothing open is
// carried across a fork, so records may be used on both sides of one. Its properties are JSON
// values under names.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace KVX {

// Thrown where a record or a store cannot be made or found.
class TaskError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A handle on one stored record. It keeps the properties as last loaded:
// the getters answer from that copy, `reload` refreshes it. Not for use by two
// threads at once.
//
// A removed record stays removed: every later write through any handle fails.
class Task {
 public:
  // Makes a new, empty, unfinished record. Throws TaskError when the store
  // cannot be written or the id is taken.
  Task(const char* user, const char* taskId);
  ~Task();
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  std::string getTaskId() const;
  const std::string& user() const { return user_; }

  // Loads the properties anew. False when the record is gone or cannot be
  // read; the handle's properties are then empty.
  bool reload();
  // True once, when the properties are still those that a handle on an existing record
  // loaded as it was made.
  [[nodiscard]] bool takeFirstLoad();

  // The loaded value, null when the property is missing or its stored text is
  // damaged. The "params" of "data" may hold lists of many thousands of values, which are
  // kept apart: they are read anew for this.
  Json::Value getProperty(const char* name) const;

  // The same without a copy, and without those lists; valid until the task is loaded or
  // changed again. "data" that is written without the lists leaves them as they are stored.
  const Json::Value& loadedProperty(const char* name) const;
  bool getBoolProperty(const char* name, bool fallback) const;
  double getDoubleProperty(const char* name, double fallback) const;

  // Between beginUpdate and endUpdate (or finish) setProperty only collects;
  // endUpdate writes all of it in one transaction. Outside, setProperty writes
  // at once. False when the write failed or the record is gone; the collected
  // values are dropped then.
  void beginUpdate();
  bool setProperty(const char* name, Json::Value value);
  bool endUpdate();

  // What the task transferred, for the user's totals; finish takes it down. Without
  // it the totals get what the "data" written with the end reports.
  void setTransferredBytes(std::uint64_t bytes);

  // Writes what was collected and marks the record finished, in one
  // transaction; with `drop` the record is removed instead. False on failure.
  bool finish(bool drop);

  // Whether the record was finished when its properties were loaded: an answer
  // put together from both never says "finished" beside what an unfinished task
  // had written. A record that is gone is not finished.
  bool isFinished();

  // Removes the record. True when it is gone afterwards.
  bool remove();

  // Removes the record when this handle is destroyed.
  void removeWhenReleased();
  // True when isFinished was asked and every answer of this handle was true.
  bool reportedFinished() const;

  // Stores a notification for the task's owner: application id, task id,
  // category, title key, then further texts up to a null pointer. Texts are
  // stored as given. False on failure.
  bool sendNotifyMessageNoEncode(const char* app, const char* taskId, const char* category,
                                 const char* title, ...) __attribute__((sentinel));

 private:
  friend class TaskMgr;
  bool writePending(bool finish);
  struct Existing {};
  Task(Existing, std::string user, std::string taskId);

  std::string user_;
  std::string id_;
  Json::Value properties_;
  std::map<std::string, std::string> texts_;  // properties_ as they are stored
  Json::Value pending_;
  bool finished_ = false;
  bool firstLoad_ = false;
  bool updating_ = false;
  bool askedFinished_ = false;
  bool allFinished_ = true;
  bool removeWhenReleased_ = false;
  std::optional<std::int64_t> transferredBytes_;
};

// One user's registry.
class TaskMgr {
 public:
  explicit TaskMgr(const char* user);

  // `prefix` followed by 128 random bits in hexadecimal. Throws TaskError when
  // no randomness can be had.
  std::string getUniqueTaskId(const char* prefix);

  // The record, loaded; owned by the caller, never null. Throws TaskError when
  // the user has no such record.
  Task* getTaskWithThrow(const char* taskId);

 private:
  std::string user_;
};

}  // namespace KVX
