#include "notifications.h"

#include <ctime>
#include <utility>

#include "json_text.h"
#include "tasks/store.h"

namespace tasks {
namespace internal {
namespace {

constexpr int kKeptNotifications = 1000;

}  // namespace

Result AddNotification(const std::string& user, const Notification& notification) {
  Database database;
  Result result = database.OpenOrCreate(user);
  if (result == Result::kDone) result = database.Begin();
  if (result != Result::kDone) return result;
  result = Statement(database,
                     "INSERT INTO notifications(time, app, taskid, category, title, args) "
                     "VALUES(?, ?, ?, ?, ?, ?)")
               .Bind(static_cast<std::int64_t>(time(nullptr)))
               .BindBlob(notification.app)
               .BindBlob(notification.task_id)
               .BindBlob(notification.category)
               .BindBlob(notification.title)
               .BindBlob(JsonToText(notification.args))
               .Run();
  if (result == Result::kDone) {
    result = Statement(database,
                       "DELETE FROM notifications WHERE seq <= "
                       "(SELECT max(seq) FROM notifications) - ?")
                 .Bind(static_cast<std::int64_t>(kKeptNotifications))
                 .Run();
  }
  return result == Result::kDone ? database.Commit() : result;
}

}  // namespace internal

Json::Value Notifications(const std::string& user, int limit) {
  Json::Value list(Json::arrayValue);
  internal::Database database;
  if (limit <= 0 || database.Open(user) != internal::Result::kDone) return list;
  internal::Statement query(database,
                            "SELECT seq, time, app, taskid, category, title, args "
                            "FROM notifications ORDER BY seq DESC LIMIT ?");
  query.Bind(static_cast<std::int64_t>(limit));
  while (query.Next()) {
    Json::Value entry(Json::objectValue);
    entry["id"] = static_cast<Json::Int64>(query.Integer(0));
    entry["time"] = static_cast<Json::Int64>(query.Integer(1));
    entry["app"] = query.Bytes(2);
    entry["taskid"] = query.Bytes(3);
    entry["category"] = query.Bytes(4);
    entry["title"] = query.Bytes(5);
    entry["args"] = internal::TextToJson(query.Bytes(6));
    list.append(std::move(entry));
  }
  return list;
}

}  // namespace tasks
