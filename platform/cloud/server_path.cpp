#include "server_path.h"

#include <string_view>

namespace TAVOCloud {
namespace {

bool IsPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("-._~/").find(c) != std::string_view::npos;
}

}  // namespace

bool IsSendablePath(const std::string& path) {
  return !path.empty() && path[0] == '/' &&
         path.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos;
}

std::string PercentEncode(const std::string& path) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::string text;
  for (const char c : path) {
    if (IsPlain(c)) {
      text += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    text += {'%', kHex[byte >> 4U], kHex[byte & 0x0FU]};
  }
  return text;
}

std::string HostAndPort(const std::string& host, int port) {
  const bool bare_ipv6 = host.find(':') != std::string::npos && host.front() != '[';
  return (bare_ipv6 ? "[" + host + "]" : host) + (port == 0 ? "" : ":" + std::to_string(port));
}

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

}  // namespace TAVOCloud
