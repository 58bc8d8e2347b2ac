// Tables for "list" and "ls".
#pragma once

#include <json/value.h>

#include <string>

namespace cli {

// One line for each task of the server's "tasks" answer.
std::string TaskTable(const Json::Value& tasks);

// One line for each entry of the server's "list" answer.
std::string FolderTable(const Json::Value& entries);

}  // namespace cli
