// A file that one real server passes on to another, through this process.
#include <gmock/gmock.h>
#include <unistd.h>

#include <memory>

#include "core/error.h"
#include "transfer_fixture.h"

namespace {

using TAVOCloud::Cloud;
using TAVOCloud::Utils;

struct Receiver {
  const char* name;
  const char* program;
  std::vector<std::string> options;
};

class TwoServersTest : public TransferTest, public testing::WithParamInterface<Receiver> {};

INSTANTIATE_TEST_SUITE_P(Receivers, TwoServersTest,
                         testing::Values(Receiver{"ftp", "ftp.py", {}},
                                         Receiver{"digest", "webdav.py", {"--digest"}}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(TwoServersTest, AFileIsPassedOnWholeAndCountedOnce) {
  ServerProgram other;
  std::vector<std::string> options = GetParam().options;
  options.insert(options.end(), {"--root", data_});
  if (!StartServer("ftp") || !other.Start(GetParam().program, options)) {
    GTEST_SKIP() << "these servers cannot run here";
  }
  core::Config config;
  config.remotes = {server_.remote(), other.remote()};
  config.remotes[1].name = "other";
  for (core::RemoteConfig& remote : config.remotes) {
    remote.mount = folder_;
    remote.path = data_;
  }
  core::SetConfig(config);
  const std::unique_ptr<Cloud> dest(
      Utils::CreateCloudByURI(geteuid(), config.remotes[1].protocol + "://other/", 1));
  ASSERT_NE(dest, nullptr);
  const std::string text = RandomText(kBig);
  WriteFile(Path("file"), text);
  ASSERT_TRUE(Cloud::CopyFile(cloud_.get(), dest.get(), cloud_->GetServerID() + "file",
                              dest->GetServerID() + "copy", kBig, &CountBytes, &ShallStop,
                              &GrantSome))
      << std::hex << VLIBCErrGet();
  EXPECT_TRUE(ReadFile(Path("copy")) == text);
  EXPECT_EQ(watch.counted, kBig);
  EXPECT_THAT(Names(), testing::ElementsAre("copy", "file"));
}

}  // namespace
