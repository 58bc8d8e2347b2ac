// Whom the server acts for.
#pragma once

#include <pwd.h>

#include <string>

#include "core/config.h"

namespace host {

// Whether the server has several users: by system accounts, by issued tokens or both.
bool HasSeveralUsers(const core::Config& config);

// Whether this account may log in with its password: neither root nor an account of the
// system's own.
bool MayLogIn(const core::Config& config, const passwd& account);

// Whether requests may run as `user`, whatever the HTTP side says: the one user of a
// single-user server, a user with an issued token, or one who may log in.
bool MayServe(const core::Config& config, const std::string& user);

}  // namespace host
