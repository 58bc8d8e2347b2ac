#include "host/cli/token_store.h"

#include <core/unique_fd.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "host/cli/interrupt.h"

namespace cli {
namespace {

constexpr std::size_t kLongest = 4096;

std::string ErrnoText() { return std::generic_category().message(errno); }

std::string Home() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/') return home;
  const passwd* user = ::getpwuid(::getuid());
  return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "";
}

std::string Trimmed(const std::string& text) {
  constexpr const char* kBlank = " \t\r\n";
  const auto first = text.find_first_not_of(kBlank);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

// Up to the end or, with `one_line`, the first line feed. False on a read error.
bool ReadText(int fd, bool one_line, std::string* out) {
  std::array<char, 512> buffer{};
  while (out->size() <= kLongest) {
    const ssize_t got = ::read(fd, buffer.data(), one_line ? 1 : buffer.size());
    if (got < 0 && errno == EINTR && !Interrupted()) continue;
    if (got < 0) return false;
    if (got == 0 || (one_line && buffer[0] == '\n')) return true;
    out->append(buffer.data(), static_cast<std::size_t>(got));
  }
  return true;
}

bool WriteAll(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t put = ::write(fd, text.data() + done, text.size() - done);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    done += static_cast<std::size_t>(put);
  }
  return true;
}

// Turns the terminal's echo off while it lives.
class NoEcho {
 public:
  explicit NoEcho(int fd) : fd_(fd) {
    if (::tcgetattr(fd_, &before_) != 0) return;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    changed_ = ::tcsetattr(fd_, TCSAFLUSH, &silent) == 0;
  }
  ~NoEcho() {
    if (changed_) ::tcsetattr(fd_, TCSAFLUSH, &before_);
  }
  NoEcho(const NoEcho&) = delete;
  NoEcho& operator=(const NoEcho&) = delete;
  bool ok() const { return changed_; }

 private:
  int fd_;
  termios before_{};
  bool changed_ = false;
};

// One line from standard input. False, with words in *error where there are some.
bool AskInSilence(const char* prompt, std::string* line, std::string* error) {
  error->clear();
  line->clear();
  if (::isatty(STDIN_FILENO) != 1) return ReadText(STDIN_FILENO, true, line);
  // Ctrl-C must end the reading, not the program: the echo has to come back.
  CatchInterrupt(CallsInProgress::kEnd);
  const NoEcho silence(STDIN_FILENO);
  if (!silence.ok()) {
    *error = "the terminal's echo cannot be turned off";
    return false;
  }
  std::fputs(prompt, stderr);
  const bool read = ReadText(STDIN_FILENO, true, line);
  std::fputs("\n", stderr);
  return read;
}

}  // namespace

std::string TokenPath() {
  if (const char* config = std::getenv("XDG_CONFIG_HOME"); config != nullptr && *config == '/') {
    return std::string(config) + "/fennox/token";
  }
  const std::string home = Home();
  return home.empty() ? "" : home + "/.config/fennox/token";
}

bool IsToken(const std::string& token) {
  return !token.empty() && token.size() <= kLongest &&
         std::all_of(token.begin(), token.end(), [](char c) { return c > 0x20 && c < 0x7f; });
}

bool ReadToken(const std::string& path, std::string* token, std::string* error) {
  token->clear();
  if (path.empty()) return true;
  const core::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) {
    if (errno == ENOENT || errno == ENOTDIR) return true;
    *error = path + ": " + ErrnoText();
    return false;
  }
  struct stat info {};
  std::string text;
  if (::fstat(fd.get(), &info) != 0 || !ReadText(fd.get(), false, &text)) {
    *error = path + ": " + ErrnoText();
    return false;
  }
  if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    *error = path + " is open to other users; make it yours alone with chmod 600";
    return false;
  }
  *token = Trimmed(text);
  if (IsToken(*token)) return true;
  *error = path + " holds no token";
  return false;
}

bool StoreToken(const std::string& path, const std::string& token, std::string* error) {
  if (path.empty()) {
    *error = "no home folder to store the token in";
    return false;
  }
  const std::string folder = path.substr(0, path.rfind('/'));
  std::error_code failed;
  std::filesystem::create_directories(folder.substr(0, folder.rfind('/')), failed);
  if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    *error = folder + ": " + ErrnoText();
    return false;
  }
  std::string temporary = path + ".XXXXXX";
  // mkstemp makes the file with mode 0600.
  const core::UniqueFd fd(::mkostemp(temporary.data(), O_CLOEXEC));
  if (fd && WriteAll(fd.get(), token + "\n") && ::fsync(fd.get()) == 0 &&
      ::rename(temporary.c_str(), path.c_str()) == 0) {
    return true;
  }
  *error = path + ": " + ErrnoText();
  if (fd) ::unlink(temporary.c_str());
  return false;
}

bool ForgetToken(const std::string& path, std::string* error) {
  if (path.empty() || ::unlink(path.c_str()) == 0 || errno == ENOENT) return true;
  *error = path + ": " + ErrnoText();
  return false;
}

bool AskForToken(std::string* token, std::string* error) {
  std::string line;
  const bool read = AskInSilence("Token: ", &line, error);
  *token = Trimmed(line);
  if (read && IsToken(*token)) return true;
  if (error->empty()) *error = "that is no token";
  return false;
}

bool AskForPassword(std::string* password, std::string* error) {
  if (AskInSilence("Password: ", password, error) && !password->empty()) return true;
  if (error->empty()) *error = "no password was given";
  return false;
}

}  // namespace cli
