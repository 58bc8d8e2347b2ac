#include "silent_servers.h"

#include <mutex>
#include <set>

namespace TAVOCloud {
namespace {

struct Known {
  std::mutex mutex;
  std::set<std::string> servers;
};

Known& Silent() {
  static Known known;
  return known;
}

}  // namespace

bool SilentServers::Has(const std::string& server) {
  Known& known = Silent();
  const std::lock_guard<std::mutex> lock(known.mutex);
  return known.servers.contains(server);
}

void SilentServers::Note(const std::string& server, bool silent) {
  Known& known = Silent();
  const std::lock_guard<std::mutex> lock(known.mutex);
  if (silent) {
    known.servers.insert(server);
  } else {
    known.servers.erase(server);
  }
}

}  // namespace TAVOCloud
