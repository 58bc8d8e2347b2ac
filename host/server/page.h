// The files of the web page, compiled into the server.
#pragma once

#include <string>
#include <string_view>

namespace host {

struct PageFile {
  std::string_view path;  // "/app.js"; the index is "/"
  const char* type;
  std::string_view content;
  const char* etag;  // changes with the content
};

// The file served under `path`, null when there is none.
const PageFile* FindPageFile(const std::string& path);

}  // namespace host
