#include "sessions.h"

#include <openssl/sha.h>

#include <algorithm>
#include <array>

#include "tokens.h"

namespace host {
namespace {

constexpr int kSecretBits = 256;
constexpr int kNameBits = 64;

std::string DigestOf(const std::string& text) {
  std::string digest(SHA256_DIGEST_LENGTH, '\0');
  SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(),
         reinterpret_cast<unsigned char*>(digest.data()));
  return digest;
}

}  // namespace

std::string Sessions::Start(const std::string& user, Clock::time_point now) {
  std::string cookie = RandomHex(kSecretBits);
  Session session{user, RandomHex(kSecretBits), RandomHex(kNameBits)};
  if (cookie.empty() || session.csrf.empty() || session.name.empty()) return {};
  const std::lock_guard lock(mutex_);
  DropOld(now);
  entries_[DigestOf(cookie)] = Entry{std::move(session), now};
  return cookie;
}

std::optional<Session> Sessions::Find(const std::string& cookie, Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(DigestOf(cookie));
  if (found == entries_.end()) return std::nullopt;
  if (now - found->second.used > kIdleLife) {
    entries_.erase(found);
    return std::nullopt;
  }
  found->second.used = now;
  return found->second.session;
}

void Sessions::End(const std::string& cookie) {
  const std::lock_guard lock(mutex_);
  entries_.erase(DigestOf(cookie));
}

void Sessions::DropOld(Clock::time_point now) {
  std::erase_if(entries_, [&](const auto& item) { return now - item.second.used > kIdleLife; });
  while (entries_.size() >= kMaxSessions) {
    entries_.erase(std::min_element(
        entries_.begin(), entries_.end(),
        [](const auto& a, const auto& b) { return a.second.used < b.second.used; }));
  }
}

}  // namespace host
