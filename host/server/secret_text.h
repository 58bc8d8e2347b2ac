// Texts that leave no trace in memory.
#pragma once

#include <openssl/crypto.h>

#include <string>

namespace host {

// Overwrites a text's bytes and empties it.
inline void Wipe(std::string* text) {
  OPENSSL_cleanse(text->data(), text->size());
  text->clear();
}

// A text that is wiped when it goes away. It does not move: a move leaves bytes behind.
class SecretText {
 public:
  SecretText() = default;
  explicit SecretText(std::string text) : text_(text) { Wipe(&text); }
  ~SecretText() { Wipe(&text_); }
  SecretText(const SecretText&) = delete;
  SecretText& operator=(const SecretText&) = delete;

  const std::string& get() const { return text_; }
  std::string* out() { return &text_; }

 private:
  std::string text_;
};

}  // namespace host
