// Names in headers and addresses.
#pragma once

#include <string>

namespace host {

// Splits "ADDRESS:PORT" ("[::1]:5050" for IPv6). False when it is neither.
[[nodiscard]] bool SplitAddress(const std::string& text, std::string* address, int* port);

// The name in a Host header, without its port and brackets, in lower case.
std::string HostOf(const std::string& header);

// "localhost", 127.x.x.x and "::1".
bool IsLoopbackName(const std::string& name);

// The value of a cookie, empty when it is missing.
std::string CookieValue(const std::string& header, const std::string& name);

}  // namespace host
