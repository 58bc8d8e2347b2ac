// The names in a folder of an SFTP server.
#pragma once

#include <string>

#include "leftovers.h"
#include "sftp_channel.h"

namespace TAVOCloud {

// Gives `picker` the names, as far as the server tells them; the channel is open.
void ListFolder(SftpChannel* channel, const std::string& folder, LeftoverPicker* picker);

}  // namespace TAVOCloud
