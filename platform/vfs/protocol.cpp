#include <array>
#include <string>

#include "vfs/vfs.h"

namespace TAVOVFS {
namespace {

struct ProtocolFacts {
  const char* name;
  const char* description;
  int port;
};

constexpr std::array<ProtocolFacts, 6> kProtocols{{
    {"sftp", "SSH file transfer", 22},
    {"ftp", "FTP", 21},
    {"ftps", "FTP over TLS", 21},
    {"webdav", "WebDAV", 80},
    {"webdavs", "WebDAV over TLS", 443},
    {"dropbox", "Dropbox", 443},
}};

}  // namespace

bool Protocol::GetProtocol(const char* protocol, Json::Value& description) {
  for (const ProtocolFacts& facts : kProtocols) {
    if (protocol == nullptr || std::string(protocol) != facts.name) continue;
    description = Json::Value(Json::objectValue);
    description["name"] = facts.name;
    description["description"] = facts.description;
    description["port"] = facts.port;
    description["enable_curl"] = "true";  // a text, not a boolean: part of the interface
    return true;
  }
  return false;
}

}  // namespace TAVOVFS
