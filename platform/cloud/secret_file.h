// Secrets as the transfers need them.
#pragma once

#include <string>

#include "core/unique_fd.h"

namespace TAVOCloud {

// Reads a password: the first line of a secret file (see core/secret.h). False with
// *err in words.
[[nodiscard]] bool ReadSecret(const std::string& path, std::string* secret, std::string* err);

// A secret file for libraries that read it by themselves.
class SecretFile {
 public:
  // False with *err in words when there is no such secret.
  [[nodiscard]] bool Open(const std::string& file, std::string* err);

  // A path that this process, though perhaps no other, can read it under.
  const std::string& path() const { return path_; }

 private:
  core::UniqueFd memory_;
  std::string path_;
};

}  // namespace TAVOCloud
