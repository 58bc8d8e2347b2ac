// Telling the user why there is no result.
#pragma once

#include <string>

#include "host/cli/client.h"

namespace cli {

// From here on refusals are one line of JSON on standard output, like results, instead of
// words on standard error. Call it before the first refusal; for one thread.
void ReportRefusalsAsJson();

// Each returns the exit status of a refusal. `hint`: what the user can do, a line of its own.
int Refuse(const CallError& error, const std::string& what, const std::string& hint = "");
int Refuse(const std::string& text);

}  // namespace cli
