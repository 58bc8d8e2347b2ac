// Shares by the first component of a path.
#pragma once

#include <string>
#include <string_view>

#include "core/config.h"

namespace support {

inline constexpr std::string_view kHomeShare = "home";

// The share name of "/NAME", "/NAME/rest" or of the bare share part "NAME";
// empty when the text is none of these.
std::string_view ShareNameOf(std::string_view path);

// The configured local share; null when there is none of that name.
const core::ShareConfig* FindShare(std::string_view name);

// Why there is no mount for a path that none holds: what went wrong when its remote was
// mounted, or that there is no such share.
int CodeOfMissingMount(const std::string& path);

// The configured remote mount; null when there is none of that name.
const core::RemoteConfig* FindRemote(std::string_view name);

}  // namespace support
