// Asking what is mounted on a folder, whoever hangs behind it.
#pragma once

#include <string>

namespace vfs {

// Makes what is mounted there ask its server; 0 or an errno.
int LookInto(const std::string& folder);

// The same in a child, so that a mount that hangs holds up nobody: ETIMEDOUT then.
int Probe(const std::string& folder, int seconds);

}  // namespace vfs
