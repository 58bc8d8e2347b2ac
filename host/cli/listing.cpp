#include "host/cli/listing.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <vector>

#include "host/cli/format.h"
#include "host/cli/task_status.h"

namespace cli {
namespace {

using Row = std::vector<std::string>;

// Columns as wide as their widest text; the last one is not padded.
std::string Table(const std::vector<Row>& rows, const std::vector<bool>& right) {
  std::vector<std::size_t> widths(right.size(), 0);
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], Columns(row[i]));
    }
  }
  std::string out;
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - Columns(row[i]), ' ');
      if (i > 0) out += "  ";
      if (right[i]) out += padding;
      out += row[i];
      if (!right[i] && i + 1 < row.size()) out += padding;
    }
    out += "\n";
  }
  return out;
}

// Local time; empty for what is no time.
std::string TimeText(double seconds) {
  constexpr double kLatest = 253402300799;  // the end of the year 9999
  if (!(seconds > 0 && seconds <= kLatest)) return "";
  const auto when = static_cast<std::time_t>(seconds);
  std::tm local{};
  if (::localtime_r(&when, &local) == nullptr) return "";
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &local);
  return {text.data(), length};
}

const Json::Value& Member(const Json::Value& object, const char* name) {
  return object.isObject() ? object[name] : Json::Value::nullSingleton();
}

std::string StateText(const Json::Value& task) {
  const Json::Value& finished = Member(task, "finished");
  const Json::Value& data = Member(task, "data");
  const double ratio = NumberOf(task, "progress", -1);
  if (!finished.isBool() || !finished.asBool()) {
    if (TextOf(data, "status") == "NOT_STARTED") return "waiting";
    return ratio > 0 ? "running" + FormatPercent(ratio) : "running";
  }
  if (ratio < 0) return "failed";
  const Json::Value& errors = Member(data, "errors");
  if (!errors.isArray() || errors.empty()) return "done";
  return "done, " + FormatCount(errors.size()) + " failed";
}

// "copy photos/a and 2 more to /backup"
std::string WorkText(const Json::Value& task) {
  const Json::Value& params = Member(Member(task, "data"), "params");
  const Json::Value& move = Member(params, "remove_src");
  const Json::Value& paths = Member(params, "path");
  std::string text = move.isBool() && move.asBool() ? "move " : "copy ";
  if (paths.isArray() && !paths.empty() && paths[0].isString()) {
    text += Printable(paths[0].asString());
    if (paths.size() > 1) text += " and " + FormatCount(paths.size() - 1) + " more";
  }
  return text + " to " + Printable(TextOf(params, "dest_folder_path"));
}

}  // namespace

std::string TaskTable(const Json::Value& tasks) {
  std::vector<Row> rows;
  if (!tasks.isArray()) return "";
  for (const Json::Value& task : tasks) {
    const std::string id = TextOf(task, "id");
    // The record's summary lies under the task's own id.
    const Json::Value& summary = Member(Member(task, "data"), id.c_str());
    rows.push_back({Printable(id), TimeText(NumberOf(summary, "created", 0)), StateText(task),
                    WorkText(task)});
  }
  return Table(rows, {false, false, false, false});
}

std::string LogTable(const Json::Value& lines) {
  std::vector<Row> rows;
  if (!lines.isArray()) return "";
  for (const Json::Value& line : lines) {
    const Json::Value& folder = Member(line, "folder");
    const bool is_folder = folder.isBool() && folder.asBool();
    rows.push_back({TimeText(NumberOf(line, "time", 0)), Printable(TextOf(line, "action")),
                    is_folder ? "" : FormatBytes(NumberOf(line, "size", 0)),
                    Printable(TextOf(line, "text"))});
  }
  return Table(rows, {false, false, true, false});
}

bool AnyRuns(const Json::Value& tasks) {
  if (!tasks.isArray()) return false;
  return std::any_of(tasks.begin(), tasks.end(), [](const Json::Value& task) {
    const Json::Value& finished = Member(task, "finished");
    return !finished.isBool() || !finished.asBool();
  });
}

std::string FolderTable(const Json::Value& folder) {
  std::vector<Row> rows;
  for (const Json::Value& entry : Member(folder, "entries")) {
    const std::string type = TextOf(entry, "type");
    const std::string size = type == "file" ? FormatBytes(NumberOf(entry, "size", 0)) : "";
    rows.push_back({Printable(type), size, TimeText(NumberOf(entry, "mtime", 0)),
                    Printable(TextOf(entry, "name")) + (type == "folder" ? "/" : "")});
  }
  return Table(rows, {false, true, false, false});
}

std::string ShareTable(const Json::Value& shares) {
  std::vector<Row> rows;
  if (!shares.isArray()) return "";
  for (const Json::Value& share : shares) {
    const Json::Value& writable = Member(share, "writable");
    rows.push_back({writable.isBool() && writable.asBool() ? "writable" : "read only",
                    Printable(TextOf(share, "path"))});
  }
  return Table(rows, {false, false});
}

std::string RemoteTable(const Json::Value& remotes) {
  std::vector<Row> rows;
  if (!remotes.isArray()) return "";
  for (const Json::Value& remote : remotes) {
    const bool mounted = Member(remote, "mounted") == Json::Value(true);
    rows.push_back({Printable(TextOf(remote, "name")), mounted ? "mounted" : "not mounted",
                    Printable(TextOf(remote, "path"))});
  }
  return Table(rows, {false, false, false});
}

std::string RemoteLine(const Json::Value& remote) {
  const std::string start = Printable(TextOf(remote, "name")) + ": ";
  if (Member(remote, "ready") == Json::Value(true)) return start + "ready";
  const std::string words = Printable(TextOf(remote, "words"));
  return start + Printable(TextOf(remote, "problem")) + (words.empty() ? "" : ": " + words);
}

}  // namespace cli
