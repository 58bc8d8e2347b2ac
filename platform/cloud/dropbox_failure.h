// What an answer of Dropbox's service means for the file.
#pragma once

#include <string>

#include "dropbox_api.h"
#include "failure.h"

namespace TAVOCloud {

// `broken`: the call may be sent again, perhaps after a while. `cloud` is the status.
Failure ExplainDropbox(const DropboxAnswer& answer);

// For people; holds no secret.
std::string WordsOf(const DropboxAnswer& answer);

}  // namespace TAVOCloud
