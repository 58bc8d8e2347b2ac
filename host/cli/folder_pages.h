// A folder's list, which the server gives in pages.
#pragma once

#include <json/value.h>

#include <functional>
#include <string>

#include "host/cli/client.h"

namespace cli {

// Gives `each` the server's "list" answers for the folder, one after the other, as they
// come. False with *error filled when one did not come; what was given stays true.
[[nodiscard]] bool EachPage(Client* client, const std::string& path,
                            const std::function<void(const Json::Value&)>& each, CallError* error);

}  // namespace cli
