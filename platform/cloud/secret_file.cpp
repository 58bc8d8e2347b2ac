#include "secret_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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

bool SecretFile::Open(const std::string& file, std::string* err) {
  std::string content;
  if (!core::ReadSecretFile(file, &content, err)) return false;
  if (!core::IsSecretKept(file)) {
    path_ = file;
    return true;
  }
  // This process may not read the file, so it gets one in memory that is its own.
  memory_.reset(memfd_create("secret", MFD_CLOEXEC));
  if (!memory_ || write(memory_.get(), content.data(), content.size()) !=
                      static_cast<ssize_t>(content.size())) {
    *err = file + ": " + std::strerror(errno);
    return false;
  }
  path_ = "/proc/self/fd/" + std::to_string(memory_.get());
  return true;
}

}  // namespace TAVOCloud
