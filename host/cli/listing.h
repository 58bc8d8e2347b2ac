// Tables for "list", "ls" and "remote". Members of a wrong kind show as empty.
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

// One line for each entry of the server's "list" answer, in its order.
std::string FolderTable(const Json::Value& folder);

// One line for each share of the server's "shares" answer.
std::string ShareTable(const Json::Value& shares);

// One line for each remote of the server's "remotes" answer.
std::string RemoteTable(const Json::Value& remotes);

// One line for the server's "remote" answer, without its line end.
std::string RemoteLine(const Json::Value& remote);

}  // namespace cli
