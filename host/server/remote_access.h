// What a request needs of the remote servers that it names.
#pragma once

#include "call.h"

namespace host {

// Reads the secrets of the remote servers that the call's parameters name and that its
// user may use into memory. For a process that is still root: it becomes the user
// afterwards, who can read none of the files. Does nothing for other processes.
void KeepSecretsFor(const Call& call);

}  // namespace host
