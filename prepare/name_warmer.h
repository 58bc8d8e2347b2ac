// Brings the names of a long request into the kernel's memory on a second processor.
#pragma once

#include <json/value.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/path_info.h"

namespace Fennox {

// Looks names up from the last source to the first, at the source and at the
// destination, while the caller checks them from the first to the last. What it finds is
// not used: the caller's own looks are only answered faster.
class NameWarmer {
 public:
  // Both stay as they are while the object lives.
  NameWarmer(const Json::Value& sources, const std::string& destFolder);
  // Waits for the thread, so that the process may fork afterwards.
  ~NameWarmer();
  NameWarmer(const NameWarmer&) = delete;
  NameWarmer& operator=(const NameWarmer&) = delete;

  // Tells what has been checked so far. Names beside the first one are looked up.
  void Checked(const std::vector<PathInfo>& infos);

 private:
  void Start(const PathInfo& first);
  void Run();

  const Json::Value& sources_;
  const std::string& destFolder_;
  std::string shareFolder_;  // with a slash at the end, as the next one
  std::string realFolder_;
  std::atomic<std::size_t> checked_{0};
  std::thread thread_;
};

}  // namespace Fennox
