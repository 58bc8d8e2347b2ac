#include "core/mount_table.h"

#include <fstream>
#include <set>
#include <sstream>
#include <string_view>

namespace core {
namespace {

bool IsOctal(char c) { return c >= '0' && c <= '7'; }

// The table writes blanks, tabs, line feeds and backslashes as \ooo.
std::string DecodeOctal(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && IsOctal(text[i + 1]) && IsOctal(text[i + 2]) &&
        IsOctal(text[i + 3])) {
      out += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 +
                               (text[i + 3] - '0'));
      i += 3;
    } else {
      out += text[i];
    }
  }
  return out;
}

bool ParseLine(const std::string& line, MountEntry* out) {
  std::istringstream words(line);
  std::string device;
  std::string root;
  std::string point;
  std::string word;
  if (!(words >> out->id >> out->parent >> device >> root >> point)) return false;
  // Any number of optional words stands before the dash.
  while (words >> word && word != "-") {
  }
  if (!(words >> out->type)) return false;
  out->point = DecodeOctal(point);
  return true;
}

// `path` without empty and "." components; ".." takes its parent away.
std::string Normalized(const std::string& path) {
  std::vector<std::string> parts;
  std::istringstream in(path);
  std::string part;
  while (std::getline(in, part, '/')) {
    if (part.empty() || part == ".") continue;
    if (part != "..") {
      parts.push_back(part);
    } else if (!parts.empty()) {
      parts.pop_back();
    }
  }
  std::string out;
  for (const auto& p : parts) out += "/" + p;
  return out.empty() ? "/" : out;
}

bool Holds(const std::string& point, std::string_view path) {
  if (point == "/") return true;
  return path.starts_with(point) && (path.size() == point.size() || path[point.size()] == '/');
}

}  // namespace

std::vector<MountEntry> ParseMountTable(const std::string& text) {
  std::vector<MountEntry> table;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    MountEntry entry{};
    if (ParseLine(line, &entry)) table.push_back(std::move(entry));
  }
  return table;
}

std::vector<MountEntry> ReadMountTable() {
  std::ifstream file("/proc/self/mountinfo");
  std::ostringstream text;
  text << file.rdbuf();
  return ParseMountTable(text.str());
}

const MountEntry* MountOf(const std::vector<MountEntry>& table, const std::string& path) {
  const std::string clean = Normalized(path);
  std::set<std::uint64_t> ids;
  for (const auto& entry : table) ids.insert(entry.id);

  // Follows the path as the kernel does: from the mount reached so far into
  // the first mount on it along the way. So a mount hidden below a later one is
  // never taken, whatever the order of the table.
  const MountEntry* current = nullptr;
  for (std::size_t steps = 0; steps <= table.size(); ++steps) {
    const MountEntry* next = nullptr;
    for (const auto& entry : table) {
      const bool child = current == nullptr
                             ? (!ids.contains(entry.parent) || entry.parent == entry.id)
                             : (entry.parent == current->id && entry.id != current->id);
      if (!child || !Holds(entry.point, clean)) continue;
      if (next == nullptr || entry.point.size() < next->point.size()) next = &entry;
    }
    if (next == nullptr) break;
    current = next;
  }
  return current;
}

}  // namespace core
