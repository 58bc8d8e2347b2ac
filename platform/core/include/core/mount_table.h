// The kernel's table of mounts, as this process sees it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace core {

struct MountEntry {
  std::uint64_t id;
  std::uint64_t parent;
  std::string point;  // absolute path
  std::string type;   // the kernel's name, such as "ext4"
};

// Mounts in the order of the table; lines that cannot be read are left out.
[[nodiscard]] std::vector<MountEntry> ParseMountTable(const std::string& text);
[[nodiscard]] std::vector<MountEntry> ReadMountTable();

// The mount that holds an absolute path, found by its text alone: nothing is
// asked of the file systems, so a dead one cannot make this wait. Null when no
// mount holds it.
const MountEntry* MountOf(const std::vector<MountEntry>& table, const std::string& path);

}  // namespace core
