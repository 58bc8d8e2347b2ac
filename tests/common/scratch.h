// What many tests need: a folder of their own, whole files, and children.
#pragma once

#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

// A fresh folder, by its real path, that every user may pass through. It is removed with all
// that is in it by the process that made it.
class TempFolder {
 public:
  explicit TempFolder(const std::filesystem::path& below = std::filesystem::temp_directory_path()) {
    std::string name = below / "fennox-test-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr || ::chmod(name.c_str(), 0755) != 0) std::abort();
    path_ = std::filesystem::canonical(name);
  }
  ~TempFolder() {
    std::error_code ignored;
    if (owner_ == ::getpid()) std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& rest) const { return path_ + "/" + rest; }

 private:
  std::string path_;
  pid_t owner_ = ::getpid();
};

// Gives the path back. A mode of 0 leaves what the process's mask lets through.
inline std::string WriteFile(const std::filesystem::path& path, const std::string& content,
                             mode_t mode = 0) {
  std::ofstream(path, std::ios::binary) << content;
  if (mode != 0) std::filesystem::permissions(path, std::filesystem::perms(mode));
  return path;
}

// "" when it cannot be read.
inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The name of the user who runs the tests.
inline std::string OwnName() {
  const passwd* record = ::getpwuid(::geteuid());
  return record != nullptr ? record->pw_name : "";
}

// Starts a child that ends with the function's result.
inline pid_t StartChild(const std::function<int()>& body) {
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(body());
  return pid;
}

// The exit status of a child, for which it waits; -1 when it did not exit.
inline int StatusOf(pid_t pid) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline int InChild(const std::function<int()>& body) { return StatusOf(StartChild(body)); }

// The same in a child that has become the user "nobody"; 99 when it could not.
inline int AsNobody(const std::function<int()>& body) {
  return InChild([&] {
    if (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0) return 99;
    return body();
  });
}
