// The server's own calls that touch the user's files and records. They run in a
// request process, as the user.
#pragma once

#include <string>

#include "call.h"

namespace host {

// True when `method` is such a call: shares, list, remotes, remote, tasks, task, notifications,
// log, texts.
bool IsHostCall(const std::string& method);

// Becomes the user and answers. The answer is an envelope's text.
std::string AnswerHostCall(const Call& call);

}  // namespace host
