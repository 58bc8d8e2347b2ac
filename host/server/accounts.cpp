#include "accounts.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "core/user.h"
#include "login_policy.h"

namespace host {
namespace {

bool OwnName(std::string* name, std::string* err) {
  const passwd* record = ::getpwuid(::geteuid());
  if (record == nullptr) {
    *err =
        "the user who started the server (uid " + std::to_string(::geteuid()) + ") has no account";
    return false;
  }
  *name = record->pw_name;
  return true;
}

bool AddIssuedToken(const core::TokenConfig& entry, Tokens* tokens, std::string* err) {
  uid_t uid = 0;
  gid_t gid = 0;
  if (TAVOUserGetUGID(entry.user.c_str(), &uid, &gid) < 0) {
    *err = "token of " + entry.user + ": there is no such user";
    return false;
  }
  if (::geteuid() != 0 && uid != ::geteuid()) {
    *err = "token of " + entry.user + ": only root can act as other users";
    return false;
  }
  std::string token;
  if (!ReadTokenFile(entry.file, &token, err)) return false;
  if (tokens->UserOf(token)) {
    *err = entry.file + ": another user has the same token";
    return false;
  }
  tokens->Add(token, entry.user);
  return true;
}

}  // namespace

bool PrepareState(const core::Config& config, std::string* err) {
  const std::filesystem::path state(config.server.state);
  std::error_code ec;
  std::filesystem::create_directories(state.parent_path(), ec);
  const mode_t mode = HasSeveralUsers(config) ? 0711 : 0700;
  if (!ec && ::mkdir(state.c_str(), mode) != 0 && errno != EEXIST) {
    ec = std::error_code(errno, std::generic_category());
  }
  if (!ec && !std::filesystem::is_directory(state, ec) && !ec) {
    ec = std::make_error_code(std::errc::not_a_directory);
  }
  if (!ec && ::access(state.c_str(), W_OK | X_OK) != 0) {
    ec = std::error_code(errno, std::generic_category());
  }
  if (ec) *err = "state folder " + state.string() + ": " + ec.message();
  return !ec;
}

bool LoadTokens(const core::Config& config, Tokens* tokens, std::string* own_token,
                std::string* err) {
  own_token->clear();
  if (HasSeveralUsers(config)) {
    for (const core::TokenConfig& entry : config.tokens) {
      if (!AddIssuedToken(entry, tokens, err)) return false;
    }
    return true;
  }
  std::string user;
  if (!OwnName(&user, err)) return false;
  if (!LoadOrMakeToken(config.server.state + "/token", own_token, err)) return false;
  tokens->Add(*own_token, user);
  return true;
}

}  // namespace host
