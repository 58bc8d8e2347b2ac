// Secrets as the transfers need them.
#pragma once

#include <string>

namespace TAVOCloud {

// Reads a password: the first line of a secret file (see core/secret.h). False with
// *err in words.
[[nodiscard]] bool ReadSecret(const std::string& path, std::string* secret, std::string* err);

}  // namespace TAVOCloud
