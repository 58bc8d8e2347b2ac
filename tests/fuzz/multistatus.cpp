// What a WebDAV server tells of files and folders.
#include "webdav_multistatus.h"

#include <algorithm>

#include "fuzz.h"

namespace fuzz {

void Fuzz(std::string_view input) {
  const auto entries = TAVOCloud::ReadMultistatus(std::string(input));
  if (!entries) return;
  Require(input.find("<!DOCTYPE") == std::string_view::npos || input.find("<!") > 0, "no entities");
  for (const auto& entry : *entries) {
    Require(entry.status >= 0 && entry.status <= 999, "a status has three digits");
    const auto* found = TAVOCloud::EntryOf(*entries, entry.path);
    const bool told = entry.path.size() < 2 || entry.path.back() != '/';
    Require(!told || (found != nullptr && found->path == entry.path), "an entry is found");
  }
}

}  // namespace fuzz
