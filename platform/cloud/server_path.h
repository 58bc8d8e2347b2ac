// How paths on a server are written in URLs and commands.
#pragma once

#include <string>

namespace TAVOCloud {

// False for what no command may carry: an empty or relative path, or one with
// CR, LF or NUL, which would end the command and begin another one.
bool IsSendablePath(const std::string& path);

// The path with everything but letters, digits, "-._~" and "/" as %XX.
std::string PercentEncode(const std::string& path);

// The authority of a URL; port 0 is the protocol's own.
std::string HostAndPort(const std::string& host, int port);

// The folder of a path, with its last slash.
std::string FolderOf(const std::string& path);

}  // namespace TAVOCloud
