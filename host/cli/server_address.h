// Where the server is, from a URL.
#pragma once

#include <string>

namespace cli {

struct ServerAddress {
  std::string origin;  // scheme, host and port: "http://127.0.0.1:5050"
  std::string base;    // path that every call starts with, "" or "/…" without a last slash
};

// Takes "http://HOST[:PORT][/BASE]" or the same with https. False with words in
// *error for anything else; a user name or password in the URL is refused.
[[nodiscard]] bool ParseServerUrl(const std::string& url, ServerAddress* address,
                                  std::string* error);

}  // namespace cli
