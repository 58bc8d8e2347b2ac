// Files that hold a password.
#pragma once

#include <string>

namespace TAVOCloud {

// Reads the secret, without the end of its line. False with *err in words when
// the file cannot be read, is empty, or may be read by anybody but its owner.
[[nodiscard]] bool ReadSecret(const std::string& path, std::string* secret, std::string* err);

}  // namespace TAVOCloud
