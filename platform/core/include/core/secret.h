// Files that hold a secret: passwords, keys and tokens of remote servers.
#pragma once

#include <string>

namespace core {

// Reads such a file, at most 64 KiB. What KeepSecret kept of it is given instead. False
// with *err in words when it cannot be read, is empty, or may be read by anybody but
// its owner.
[[nodiscard]] bool ReadSecretFile(const std::string& path, std::string* content, std::string* err);

// Reads the file now and keeps what it holds, or why it could not be read, in the memory
// of this process and of those that it forks: they may become users who cannot read the
// file. Call before any thread is started.
void KeepSecret(const std::string& path);
[[nodiscard]] bool IsSecretKept(const std::string& path);

}  // namespace core
