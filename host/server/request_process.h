// The life of a request process: one request, one answer.
#pragma once

#include "core/unique_fd.h"
#include "plugin.h"

namespace host {

// Waits on `channel` for the connection of one request, serves it and ends the
// process. Also ends it when the launcher is gone.
[[noreturn]] void WaitForRequest(core::UniqueFd channel, const Plugin& plugin);

// Serves the request on `connection` and ends the process.
[[noreturn]] void ServeRequest(core::UniqueFd connection, const Plugin& plugin);

}  // namespace host
