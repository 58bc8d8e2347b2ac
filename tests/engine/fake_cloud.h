// Servers that a script drives, in the place of the cloud library's.
#pragma once

#include <string>
#include <vector>

#include "cloud/cloud.h"

// What the servers do. Remote paths are real paths below a folder of the test:
// "/srv/NAME/rest" lies at `root`/srv/NAME/rest.
struct CloudScript {
  std::string root;
  bool reachable = true;  // objects can be made
  bool transfers = true;  // transfers and copies succeed
  long breakAfter = 0;    // bytes that a failing transfer moves first
  int errorCode = 0;      // what objects say after a failure
  bool ignoresPath = false;
  bool acceptsSize = true;
  int srcKind = 1;  // kind of the objects whose path holds "/src"
  int destKind = 1;
  bool sameServer = false;  // all objects have one server id
  std::string serverId;     // their id, when not empty
  std::vector<std::string> calls;
  int alive = 0;  // objects not deleted yet
};

inline CloudScript cloudScript;

// The one call that was made, "" for none.
std::string OnlyCall();
