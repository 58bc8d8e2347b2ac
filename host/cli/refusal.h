// Telling the user why there is no result.
#pragma once

#include <string>

#include "host/cli/client.h"

namespace cli {

// Each prints to standard error and returns the exit status of a refusal.
int Refuse(const CallError& error, const std::string& what);
int Refuse(const std::string& text);

}  // namespace cli
