// The server's own calls about remote servers.
#pragma once

#include <string>

#include "call.h"

namespace host {

// "remotes": the remotes that the user may use, [{"name","path","protocol","mounted"}…].
std::string RemotesText(const Call& call);

// "remote": whether the remote of the parameter "name" is ready,
// {"name","path","protocol","mounted","ready","problem","words"}. "problem" is a short
// kind such as "login failed", "words" what was said; both are empty when it is
// ready. Its mount is made before the call; a connection for transfers is opened here.
std::string RemoteText(const Call& call);

}  // namespace host
