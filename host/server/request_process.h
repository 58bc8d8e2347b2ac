// The life of a request process: one request, one answer; or, as long as it only reads
// its user's records, the next ones of this user that do the same.
#pragma once

#include "core/unique_fd.h"
#include "plugin.h"

namespace host {

// Waits on `channel` for the connection of one request, serves it and ends the
// process. Also ends it when the launcher is gone.
[[noreturn]] void WaitForRequest(core::UniqueFd channel, const Plugin& plugin);

// Serves the request on `connection` and ends the process. After one that only reads
// records (OnlyReadsRecords) it waits there for more of this kind, of the same user; at
// any other call it ends without an answer.
[[noreturn]] void ServeRequest(core::UniqueFd connection, const Plugin& plugin);

}  // namespace host
