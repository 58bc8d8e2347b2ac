// Logins with the password of a system account.
//
// The process that checks one password is a short-lived child of the launcher: it is
// root, because only root may read password hashes, it runs PAM, which loads whatever
// the administrator configured, and it ends with its answer. The HTTP side, which is not
// root, only hands it the name and the password.
#pragma once

#include <string>

#include "core/unique_fd.h"
#include "secret_text.h"

namespace host {

enum class LoginResult {
  kGranted,
  kDenied,   // wrong name, wrong password, or an account that may not log in
  kExpired,  // the password is right, and has to be changed first
  kFailed,   // PAM took too long, or could not be asked
};

struct LoginAnswer {
  LoginResult result = LoginResult::kFailed;
  std::string user;  // the account's own name, when granted
};

// Asks over `connection`, whose peer runs ServeLogin. `address`: where the request came
// from, for PAM.
[[nodiscard]] LoginAnswer AskLogin(int connection, const std::string& name,
                                   const std::string& address, const SecretText& password);

// Answers one AskLogin and ends the process. Every refusal takes the same time, whatever
// its reason.
[[noreturn]] void ServeLogin(core::UniqueFd connection);

}  // namespace host
