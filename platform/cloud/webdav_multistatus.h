// The answers in which a WebDAV server tells about several things at once.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TAVOCloud {

// What a server tells about one file or folder.
struct DavEntry {
  std::string path;  // on the server, decoded, without a last slash
  long status = 0;   // of the entry as a whole; 0: none is told
  bool folder = false;
  std::optional<std::uint64_t> size;
};

// The entries of a multistatus document. Nothing when the text is not one, is
// not well-formed, or declares a document type: entities are a way to make a
// small text a large one, and to make a reader fetch things.
std::optional<std::vector<DavEntry>> ReadMultistatus(const std::string& text);

// The entry of a path, or the only one there is: servers may spell a path in a
// way of their own. Null without either.
const DavEntry* EntryOf(const std::vector<DavEntry>& entries, const std::string& path);

}  // namespace TAVOCloud
