// Stored notifications.
#pragma once

#include <json/value.h>

#include <string>

#include "database.h"

namespace tasks::internal {

struct Notification {
  std::string app;
  std::string task_id;
  std::string category;
  std::string title;
  Json::Value args;  // array of strings
};

// Stores it under the current time. Only the latest ones are kept.
[[nodiscard]] Result AddNotification(const std::string& user, const Notification& notification);

}  // namespace tasks::internal
