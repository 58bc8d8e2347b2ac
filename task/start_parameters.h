// Parameters of a "start" request.
#pragma once

#include <json/value.h>

#include <string>

#include "task/start_context.h"
#include "webapi_runtime/api_request.h"

namespace Fennox {

// A parameter as a boolean: a JSON boolean, a number (0 is false), the text
// "true" or "false", or null (false). False when it is anything else.
[[nodiscard]] bool ReadBoolean(const Json::Value& value, bool& out);

// Reads and checks the parameters into `start` and `destSharePath`, and sets
// _accurateProgress. False when one is missing or malformed.
[[nodiscard]] bool ReadStartParameters(const TAVO::APIRequest& request, StartContext& start,
                                       std::string& destSharePath);

}  // namespace Fennox
