// What a request needs of the remote servers that it names.
#pragma once

#include "call.h"

namespace host {

// Prepares the remote servers that the call's parameters name and that its user may use:
// reads their secrets into memory and mounts what is to be mounted automatically. For
// a process that has not yet become the user, who could do neither. A server that cannot
// be mounted is no error here: paths on it tell why when they are resolved.
void PrepareRemotesFor(const Call& call);

}  // namespace host
