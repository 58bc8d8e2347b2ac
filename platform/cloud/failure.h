// What a failed request means for the file.
#pragma once

#include "curl_handle.h"

namespace TAVOCloud {

constexpr int kNoMoreConnections = 40;
// FTP's answer of a server that will not talk, or no longer.
constexpr long kServiceClosing = 421;

struct Failure {
  int system;   // errno
  int core;     // core error code
  int cloud;    // what GetErrorCode tells
  bool broken;  // the connection was lost: the request may be sent again
};

Failure Explain(const Outcome& outcome);

}  // namespace TAVOCloud
