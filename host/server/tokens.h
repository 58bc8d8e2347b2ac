// Bearer tokens: who may speak for which user.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host {

// `bits` random bits in hexadecimal. Empty when no randomness can be had.
std::string RandomHex(int bits);

// `bytes` in hexadecimal.
std::string HexOf(const std::string& bytes);

// Compares without telling by its time how far the texts agree.
bool SameSecret(const std::string& a, const std::string& b);

// Reads a token that STATE/token keeps across restarts, or makes one (128 bits,
// mode 0600). False, with words in *err, when it cannot be read or written, or
// when others may read it.
[[nodiscard]] bool LoadOrMakeToken(const std::string& file, std::string* token, std::string* err);

// Reads a token issued by the administrator: one line of at least 16 visible
// characters, in a regular file that only its owner may read and that belongs to
// root or to the process's user. False with words in *err otherwise.
[[nodiscard]] bool ReadTokenFile(const std::string& file, std::string* token, std::string* err);

class Tokens {
 public:
  void Add(std::string token, std::string user);

  bool empty() const { return known_.empty(); }

  // The user of a token. Every known token is compared, whatever matches.
  std::optional<std::string> UserOf(const std::string& token) const;

 private:
  std::vector<std::pair<std::string, std::string>> known_;  // token, user
};

}  // namespace host
