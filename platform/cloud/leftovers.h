// Names of what is not complete yet on a server, and what ended processes have left.
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace TAVOCloud {

// A new name beside `path` for an upload, ".fennox-upload-MACHINE-PID-START-NUMBER", all
// lower-case hexadecimal. It belongs to the process that it names and goes with it.
std::string UploadPathBeside(const std::string& path);

// The same for a file that must make room for another one, ".fennox-aside-NUMBER". It
// may be the only copy of something, so it is nobody's leftover.
std::string AsidePathBeside(const std::string& path);

// True for an upload's name whose process ran on this machine and has ended.
bool IsAbandonedUpload(std::string_view name);

// Picks the abandoned uploads out of a listing that comes in pieces, one path a line.
class LeftoverPicker {
 public:
  void Take(std::string_view text);
  const std::vector<std::string>& names() const { return names_; }

 private:
  std::string line_;  // the beginning of the one that is not whole yet
  std::vector<std::string> names_;
};

// The folders that have been seen, or rather the latest of very many.
class SeenFolders {
 public:
  // True when it was not known; it is now. For any thread.
  bool Add(const std::string& folder);

 private:
  std::mutex mutex_;
  std::set<std::string> folders_;
};

}  // namespace TAVOCloud
