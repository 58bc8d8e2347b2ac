#include "temporary_state.h"

#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "core/config.h"

namespace {

class Folder {
 public:
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "fennox-host-XXXXXX").string();
    if (::mkdtemp(name.data()) != nullptr) path_ = name;
    std::filesystem::create_directory(path_ + "/state");
    std::filesystem::create_directory(path_ + "/files");
    owner_ = ::getpid();
  }
  ~Folder() {
    // Forked children leave it to the program that made it.
    std::error_code ec;
    if (!path_.empty() && owner_ == ::getpid()) std::filesystem::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  pid_t owner_ = 0;
};

}  // namespace

const std::string& TemporaryFolder() {
  static const Folder folder;
  return folder.path();
}

std::string UseTemporaryState() {
  if (core::CurrentConfig().server.state.empty()) {
    core::Config config;
    config.server.state = TemporaryFolder() + "/state";
    core::ShareConfig share;
    share.name = "files";
    share.path = TemporaryFolder() + "/files";
    share.write = {"*"};
    config.shares.push_back(share);
    core::SetConfig(config);
  }
  const passwd* record = ::getpwuid(::geteuid());
  return record != nullptr ? record->pw_name : "";
}
