// What a WebDAV server's refusal means for the file.
#pragma once

#include <string>

#include "failure.h"
#include "webdav_session.h"

namespace TAVOCloud {

// `broken` also for what the server may have overcome a moment later.
Failure ExplainWebDav(const WebDavAnswer& answer);

// The refusal for people; holds no secret.
std::string WordsOf(const WebDavAnswer& answer);

}  // namespace TAVOCloud
