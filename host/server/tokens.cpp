#include "tokens.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "core/unique_fd.h"

namespace host {
namespace {

constexpr std::size_t kMinToken = 16;
constexpr std::size_t kMaxToken = 512;
constexpr int kTokenBits = 128;

std::array<unsigned char, SHA256_DIGEST_LENGTH> Digest(const std::string& text) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
  return digest;
}

std::string Words(const std::string& file, const char* what) { return file + ": " + what; }

bool CheckTokenFile(int fd, const std::string& file, std::string* err) {
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    *err = Words(file, "is not a regular file");
    return false;
  }
  if ((st.st_mode & 077) != 0) {
    *err = Words(file, "may be read by others; give it mode 0600");
    return false;
  }
  if (st.st_uid != 0 && st.st_uid != ::geteuid()) {
    *err = Words(file, "belongs to another user");
    return false;
  }
  return true;
}

bool IsToken(const std::string& text) {
  return text.size() >= kMinToken && text.size() <= kMaxToken &&
         std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < '\x7f'; });
}

bool MakeToken(const std::string& file, std::string* token, std::string* err) {
  *token = RandomHex(kTokenBits);
  const std::string temporary = file + ".new";
  // A leftover of a run that was killed here.
  ::unlink(temporary.c_str());
  core::UniqueFd fd(
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  const std::string line = *token + "\n";
  const bool written =
      !token->empty() && fd &&
      ::write(fd.get(), line.data(), line.size()) == static_cast<ssize_t>(line.size()) &&
      ::fsync(fd.get()) == 0 && ::rename(temporary.c_str(), file.c_str()) == 0;
  if (!written) *err = Words(file, ::strerror(errno));
  return written;
}

}  // namespace

std::string RandomHex(int bits) {
  std::string bytes(static_cast<std::size_t>(bits) / 8, '\0');
  if (RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(bytes.size())) !=
      1) {
    return {};
  }
  return HexOf(bytes);
}

std::string HexOf(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    hex += kDigits[value >> 4];
    hex += kDigits[value & 15];
  }
  return hex;
}

bool SameSecret(const std::string& a, const std::string& b) {
  // Digests have one length, so the lengths of the texts stay hidden too.
  const auto one = Digest(a);
  const auto other = Digest(b);
  return CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

bool ReadTokenFile(const std::string& file, std::string* token, std::string* err) {
  core::UniqueFd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) {
    *err = Words(file, ::strerror(errno));
    return false;
  }
  if (!CheckTokenFile(fd.get(), file, err)) return false;
  std::array<char, kMaxToken + 2> buffer{};
  const ssize_t n = ::read(fd.get(), buffer.data(), buffer.size());
  std::string text(buffer.data(), n > 0 ? static_cast<std::size_t>(n) : 0);
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (!IsToken(text)) {
    *err = Words(file, "holds no token: one line of 16 to 512 visible characters");
    return false;
  }
  *token = text;
  return true;
}

bool LoadOrMakeToken(const std::string& file, std::string* token, std::string* err) {
  if (::access(file.c_str(), F_OK) != 0 && errno == ENOENT) return MakeToken(file, token, err);
  return ReadTokenFile(file, token, err);
}

void Tokens::Add(std::string token, std::string user) {
  known_.emplace_back(std::move(token), std::move(user));
}

std::optional<std::string> Tokens::UserOf(const std::string& token) const {
  std::optional<std::string> user;
  for (const auto& [known, owner] : known_) {
    if (SameSecret(known, token)) user = owner;
  }
  return user;
}

}  // namespace host
