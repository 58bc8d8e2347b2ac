#include "names.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>
#include <charconv>

namespace host {

bool SplitAddress(const std::string& text, std::string* address, int* port) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return false;
  std::string name = text.substr(0, colon);
  if (name.size() > 2 && name.front() == '[' && name.back() == ']') {
    name = name.substr(1, name.size() - 2);
  } else if (name.find(':') != std::string::npos) {
    return false;
  }
  const char* first = text.data() + colon + 1;
  const char* last = text.data() + text.size();
  const auto [end, error] = std::from_chars(first, last, *port);
  if (name.empty() || first == last || error != std::errc() || end != last) return false;
  *address = name;
  return *port >= 0 && *port <= 65535;
}

std::string HostOf(const std::string& header) {
  std::string name = header;
  if (!name.empty() && name.front() == '[') {
    name = name.substr(1, name.find(']') == std::string::npos ? 0 : name.find(']') - 1);
  } else {
    name.resize(std::min(name.size(), name.find(':')));
  }
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return name;
}

bool IsLoopbackName(const std::string& name) {
  if (name == "localhost") return true;
  in_addr v4{};
  if (::inet_pton(AF_INET, name.c_str(), &v4) == 1) {
    return (ntohl(v4.s_addr) >> 24) == IN_LOOPBACKNET;
  }
  in6_addr v6{};
  return ::inet_pton(AF_INET6, name.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}

std::string CookieValue(const std::string& header, const std::string& name) {
  for (std::size_t at = 0; at < header.size();) {
    const std::size_t end = std::min(header.find(';', at), header.size());
    const std::size_t start = std::min(header.find_first_not_of(' ', at), end);
    const std::string item = header.substr(start, end - start);
    if (item.size() > name.size() && item[name.size()] == '=' &&
        item.compare(0, name.size(), name) == 0) {
      return item.substr(name.size() + 1);
    }
    at = end + 1;
  }
  return {};
}

}  // namespace host
