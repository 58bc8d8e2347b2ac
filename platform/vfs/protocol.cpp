#include <array>
#include <string>

#include "vfs/vfs.h"

namespace TAVOVFS {
namespace {

struct ProtocolFacts {
  const char* name;
  const char* description;
  int port;
  bool streams;  // the cloud library has an object for it
};

constexpr std::array<ProtocolFacts, 6> kProtocols{{
    {"sftp", "SSH file transfer", 22, true},
    {"ftp", "FTP", 21, true},
    {"ftps", "FTP over TLS", 21, true},
    {"webdav", "WebDAV", 80, true},
    {"webdavs", "WebDAV over TLS", 443, true},
    {"dropbox", "Dropbox", 443, true},
}};

}  // namespace

bool Protocol::GetProtocol(const char* protocol, Json::Value& description) {
  for (const ProtocolFacts& facts : kProtocols) {
    if (protocol == nullptr || std::string(protocol) != facts.name) continue;
    description = Json::Value(Json::objectValue);
    description["name"] = facts.name;
    description["description"] = facts.description;
    description["port"] = facts.port;
    // A text, not a boolean: part of the interface. Without it file data goes
    // through the mounted folder.
    description["enable_curl"] = facts.streams ? "true" : "false";
    return true;
  }
  return false;
}

}  // namespace TAVOVFS
