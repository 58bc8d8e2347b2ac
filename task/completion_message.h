// The notice that a run ended without a failure.
#pragma once

#include <json/value.h>
#include <cstdint>

#include "task/start_context.h"

namespace Fennox {

// Puts the skip status and the notice's arguments into `data`, or sends the
// notice at once when the record asks for that. `skipped` is the number of
// entries whose destination existed.
void WriteCompletionMessage(const StartContext& start, std::int64_t skipped, Json::Value& data);

}  // namespace Fennox
