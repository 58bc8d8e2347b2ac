// Who may log in, and the state folder that holds their records.
#pragma once

#include <string>

#include "core/config.h"
#include "tokens.h"

namespace host {

// Makes the state folder when it is missing: for its owner only, or, with several users,
// so that each of them can reach a folder of their own in it. False with words in *err.
[[nodiscard]] bool PrepareState(const core::Config& config, std::string* err);

// Reads the tokens. Without several users there is one, who runs the server, and
// *own_token is the token to print; otherwise *own_token stays empty. False
// with words in *err.
[[nodiscard]] bool LoadTokens(const core::Config& config, Tokens* tokens, std::string* own_token,
                              std::string* err);

}  // namespace host
