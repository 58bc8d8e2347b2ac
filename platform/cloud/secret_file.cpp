#include "secret_file.h"

#include "core/secret.h"

namespace TAVOCloud {

bool ReadSecret(const std::string& path, std::string* secret, std::string* err) {
  std::string content;
  if (!core::ReadSecretFile(path, &content, err)) return false;
  *secret = content.substr(0, content.find_first_of("\r\n"));
  if (secret->empty() || secret->find('\0') != std::string::npos) {
    *err = path + ": holds no password";
    return false;
  }
  return true;
}

}  // namespace TAVOCloud
