// Servers that did not answer in time.
#pragma once

#include <string>

namespace TAVOCloud {

// The servers, by scheme, host and port, whose last answer did not come in time. One that
// hangs would else cost its time limit over and over: for the rest of a file, for the
// temporary name, for the next file. For any thread.
class SilentServers {
 public:
  static bool Has(const std::string& server);
  static void Note(const std::string& server, bool silent);
};

}  // namespace TAVOCloud
