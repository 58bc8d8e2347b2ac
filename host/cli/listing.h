// Tables for "list" and "ls". Members of a wrong kind show as empty.
#pragma once

#include <json/value.h>

#include <string>

namespace cli {

// One line for each task of the server's "tasks" answer.
std::string TaskTable(const Json::Value& tasks);

// One line for each line of the server's "log" answer.
std::string LogTable(const Json::Value& lines);

// True when one of the tasks of the server's "tasks" answer has not finished.
bool AnyRuns(const Json::Value& tasks);

// One line for each entry of the server's "list" answer, by name.
std::string FolderTable(const Json::Value& folder);

// One line for each share of the server's "shares" answer.
std::string ShareTable(const Json::Value& shares);

}  // namespace cli
