#include "temporary_state.h"

#include "core/config.h"
#include "tests/common/scratch.h"

const std::string& TemporaryFolder() {
  static const TempFolder folder;
  for (const char* name : {"state", "files"}) std::filesystem::create_directory(folder / name);
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
  return OwnName();
}
