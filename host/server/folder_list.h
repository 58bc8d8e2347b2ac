// The entries of a folder.
#pragma once

#include <string>

#include "list_page.h"

namespace host {

// The envelope that answers "list" for a path as the user names it:
// {"path", "entries":[{"name","type","size","mtime","hidden"}…], "total", "left_out", "next"}.
// "type" is "file", "folder", "link" or "other", "size" bytes, "mtime" seconds since the
// epoch. A name that is not UTF-8 is shown with U+FFFD in it and has "damaged_name": true.
// The rest is as ListPage says; "next" is there when the page is not the last. Links inside
// the share are followed on the way to the folder. Runs as the user.
std::string FolderListText(const std::string& user, const std::string& path,
                           const ListRequest& request);

}  // namespace host
