// The HTTP side without root.
#pragma once

#include <string>

#include "core/config.h"

namespace host {

// The folder for what the HTTP side keeps, STATE/front: made when missing, for nobody but
// the account that it runs as. Empty, with words in *err, when that cannot be had.
[[nodiscard]] std::string PrepareFrontFolder(const core::Config& config, std::string* err);

// Gives up every right that the HTTP side does not need, for good: no new ones by running
// programs, and, with several users as root, another account and no capability. Call
// after the last file that needs root, and before the first thread. False with words in
// *err; the process must then end.
[[nodiscard]] bool GiveUpRights(const core::Config& config, std::string* err);

}  // namespace host
