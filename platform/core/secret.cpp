#include "core/secret.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>

#include "core/unique_fd.h"

namespace core {
namespace {

constexpr std::size_t kLargestSecret = 65536;

struct Secret {
  std::string content;
  std::string err;  // why there is none
};

std::map<std::string, Secret>& Kept() {
  static std::map<std::string, Secret> kept;
  return kept;
}

bool ReadWhole(int fd, std::string* content) {
  content->resize(kLargestSecret);
  std::size_t have = 0;
  while (have < content->size()) {
    const ssize_t got = read(fd, content->data() + have, content->size() - have);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    have += static_cast<std::size_t>(got);
  }
  content->resize(have);
  return true;
}

Secret Read(const std::string& path) {
  // Not blocking: a FIFO in the file's place must not make this wait.
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return {{}, path + ": " + std::strerror(errno)};
  if (!S_ISREG(status.st_mode) || (status.st_mode & 0077U) != 0) {
    return {{}, path + ": must be a file that only its owner can read"};
  }
  Secret secret;
  if (!ReadWhole(file.get(), &secret.content)) {
    return {{}, path + ": " + std::strerror(errno)};
  }
  if (secret.content.empty()) secret.err = path + ": is empty";
  return secret;
}

}  // namespace

bool ReadSecretFile(const std::string& path, std::string* content, std::string* err) {
  const auto kept = Kept().find(path);
  const Secret secret = kept != Kept().end() ? kept->second : Read(path);
  if (!secret.err.empty()) {
    *err = secret.err;
    return false;
  }
  *content = secret.content;
  return true;
}

void KeepSecret(const std::string& path) { Kept()[path] = Read(path); }

bool IsSecretKept(const std::string& path) { return Kept().contains(path); }

}  // namespace core
