#include "secret_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "core/unique_fd.h"

namespace TAVOCloud {

bool ReadSecret(const std::string& path, std::string* secret, std::string* err) {
  const core::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) {
    *err = path + ": " + std::strerror(errno);
    return false;
  }
  if (!S_ISREG(status.st_mode) || (status.st_mode & 0077U) != 0) {
    *err = path + ": must be a file that only its owner can read";
    return false;
  }
  std::array<char, 4096> text{};
  const ssize_t got = read(file.get(), text.data(), text.size());
  const std::string all(text.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  *secret = all.substr(0, all.find_first_of("\r\n"));
  if (secret->empty() || secret->find('\0') != std::string::npos) {
    *err = path + ": holds no password";
    return false;
  }
  return true;
}

}  // namespace TAVOCloud
