#include "host/cli/server_address.h"

#include <algorithm>

namespace cli {
namespace {

// True for the characters that a host, port or base path may hold here.
bool PlainUrlText(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return c > 0x20 && c < 0x7f && c != '@' && c != '?' && c != '#' && c != '\\';
  });
}

}  // namespace

bool ParseServerUrl(const std::string& url, ServerAddress* address, std::string* error) {
  const auto scheme_end = url.find("://");
  const std::string scheme = url.substr(0, scheme_end);
  if (scheme_end == std::string::npos || (scheme != "http" && scheme != "https")) {
    *error = "the server's URL must begin with http:// or https://";
    return false;
  }
  const std::string rest = url.substr(scheme_end + 3);
  if (!PlainUrlText(rest)) {
    *error = "the server's URL must be http(s)://HOST[:PORT][/BASE] without anything else";
    return false;
  }
  const auto slash = rest.find('/');
  const std::string host = rest.substr(0, slash);
  if (host.empty() || host.front() == ':') {
    *error = "the server's URL names no host";
    return false;
  }
  std::string base = slash == std::string::npos ? "" : rest.substr(slash);
  while (!base.empty() && base.back() == '/') base.pop_back();
  *address = {scheme + "://" + host, base};
  return true;
}

}  // namespace cli
