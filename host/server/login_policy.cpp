#include "login_policy.h"

#include <unistd.h>

#include <algorithm>

namespace host {
namespace {

// The kernel's overflow account, which stands for nobody in particular.
constexpr uid_t kNobody = 65534;

}  // namespace

bool HasSeveralUsers(const core::Config& config) {
  return config.server.auth == "pam" || !config.tokens.empty();
}

bool MayLogIn(const core::Config& config, const passwd& account) {
  return account.pw_uid != 0 && account.pw_uid != kNobody &&
         account.pw_uid >= static_cast<uid_t>(config.login.min_uid);
}

bool MayServe(const core::Config& config, const std::string& user) {
  const auto& tokens = config.tokens;
  const bool issued =
      std::any_of(tokens.begin(), tokens.end(),
                  [&](const core::TokenConfig& entry) { return entry.user == user; });
  if (issued) return true;
  if (!HasSeveralUsers(config)) {
    const passwd* self = ::getpwuid(::geteuid());
    return self != nullptr && user == self->pw_name;
  }
  if (config.server.auth != "pam") return false;
  const passwd* account = ::getpwnam(user.c_str());
  return account != nullptr && user == account->pw_name && MayLogIn(config, *account);
}

}  // namespace host
