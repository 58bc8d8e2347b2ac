// The user's token: from the environment, or from a file only the user can read.
#pragma once

#include <string>

namespace cli {

// $XDG_CONFIG_HOME/fennox/token, or ~/.config/fennox/token. Empty when the user
// has no home.
std::string TokenPath();

// True when `token` can be sent in a header: printable ASCII without spaces.
bool IsToken(const std::string& token);

// The stored token. True with an empty token when there is none; false with words in
// *error when the file cannot be read, is open to others, or holds no token.
[[nodiscard]] bool ReadToken(const std::string& path, std::string* token, std::string* error);

// Replaces the file as a whole, mode 0600, and makes its folder with mode 0700.
[[nodiscard]] bool StoreToken(const std::string& path, const std::string& token,
                              std::string* error);

// Removes the stored token. True when there is none afterwards.
[[nodiscard]] bool ForgetToken(const std::string& path, std::string* error);

// One line from standard input; on a terminal after a prompt and without echo.
[[nodiscard]] bool AskForToken(std::string* token, std::string* error);
[[nodiscard]] bool AskForPassword(std::string* password, std::string* error);

}  // namespace cli
