// Small files that are still on their way when UploadFile has returned, on real servers.
#include "cloud/behind.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <map>

#include "core/error.h"
#include "core/unique_fd.h"
#include "transfer_fixture.h"

namespace {

using TAVOCloud::Behind;
using testing::ElementsAre;

constexpr timespec kOld{1'000'000'000, 0};

std::atomic<int> stop{0};  // several threads ask
int IsStopped() { return stop; }

class BehindTest : public TransferTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    stop = 0;
    const std::string protocol = GetParam();
    bool started = false;
    if (protocol == "webdav") {
      started = server_.Start("webdav.py", {"--root", data_});
      if (started) Use(server_.remote());
    } else {
      started = StartServer(protocol);
    }
    if (!started) GTEST_SKIP() << "no server for " << protocol << " can run here";
  }

  // Number of the file that stays behind; 0 when it has been sent at once.
  std::uint64_t Leave(const std::string& name, const std::string& text) {
    WriteFile(folder_ / "source", text);
    const core::UniqueFd fd(open((folder_ / "source").c_str(), O_RDONLY | O_CLOEXEC));
    const std::array times{kOld, kOld};
    EXPECT_EQ(futimens(fd.get(), times.data()), 0);
    unlink((folder_ / "source").c_str());
    Behind::LetNext(cloud_.get());
    EXPECT_TRUE(TAVOCloud::Cloud::UploadFile(cloud_.get(), cloud_->GetServerID() + name, fd.get(),
                                             text.size(), &CountBytes, &IsStopped, &GrantSome));
    return Behind::LastOf(cloud_.get());
  }
};

INSTANTIATE_TEST_SUITE_P(Protocols, BehindTest, testing::Values("sftp", "ftp", "ftps", "webdav"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(BehindTest, ManyArriveWholeAndAreCountedWhenTheyHave) {
  std::map<std::uint64_t, std::string> sent;
  std::size_t all = 0;
  for (const std::size_t size : {0, 1, 5000, 0, 300'000, 77, 1 << 20, 12}) {
    const std::string name = std::to_string(sent.size());
    sent[Leave(name, RandomText(size))] = name;
    all += size;
  }
  ASSERT_EQ(sent.size(), 8U);
  for (const auto& [number, name] : sent) {
    ASSERT_TRUE(Behind::Await(cloud_.get(), number)) << name << std::hex << VLIBCErrGet();
    const std::string text = ReadFile(Path(name));
    EXPECT_TRUE(text == RandomText(text.size()));
    all -= text.size();
    struct stat st {};
    ASSERT_EQ(stat(Path(name).c_str(), &st), 0);
    const bool keeps_times = std::string(GetParam()) == "sftp";
    EXPECT_EQ(st.st_mtime == kOld.tv_sec, keeps_times);
  }
  EXPECT_EQ(all, 0U);
  EXPECT_THAT(Names(), ElementsAre("0", "1", "2", "3", "4", "5", "6", "7"));
  EXPECT_FALSE(Behind::Await(cloud_.get(), sent.begin()->first)) << "it was asked for already";
}

TEST_P(BehindTest, ManyAreFetchedWhole) {
  std::map<std::uint64_t, std::unique_ptr<core::UniqueFd>> fetched;
  std::uint64_t all = 0;
  for (const std::uint64_t size : {0, 1, 5000, 300'000, 1 << 20}) {
    const std::string name = std::to_string(fetched.size());
    WriteFile(Path(name), RandomText(size), 0644);
    auto fd = std::make_unique<core::UniqueFd>(open(folder_.c_str(), O_TMPFILE | O_RDWR, 0600));
    Behind::LetNext(cloud_.get());
    ASSERT_TRUE(TAVOCloud::Cloud::DownloadFile(cloud_.get(), cloud_->GetServerID() + name,
                                               fd->get(), size, &CountBytes, &IsStopped, nullptr));
    fetched[Behind::LastOf(cloud_.get())] = std::move(fd);
    all += size;
  }
  ASSERT_EQ(fetched.size(), 5U);
  for (const auto& [number, fd] : fetched) {
    ASSERT_TRUE(Behind::Await(cloud_.get(), number)) << std::hex << VLIBCErrGet();
    const std::string text = ReadFile("/proc/self/fd/" + std::to_string(fd->get()));
    EXPECT_TRUE(text == RandomText(text.size()));
  }
  EXPECT_EQ(watch.counted, all);
}

TEST_P(BehindTest, ATakenNameIsLeftAlone) {
  WriteFile(Path("file"), "old", 0644);
  EXPECT_FALSE(Behind::Await(cloud_.get(), Leave("file", "new")));
  EXPECT_EQ(VLIBCErrGet(), core::kErrExists);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(ReadFile(Path("file")), "old");
  EXPECT_THAT(Names(), ElementsAre("file")) << "no temporary file stays";
}

TEST_P(BehindTest, AStopAndTheObjectsEndLeaveWholeFilesOnly) {
  std::vector<std::uint64_t> numbers;
  numbers.reserve(8);
  for (int i = 0; i < 8; ++i) numbers.push_back(Leave(std::to_string(i), RandomText(1 << 20)));
  stop = 1;
  for (int i = 0; i < 4; ++i) (void)!Behind::Await(cloud_.get(), numbers[i]);
  cloud_.reset();
  for (const std::string& name : Names()) {
    if (name.starts_with(".davfs.tmp")) continue;
    EXPECT_EQ(name.size(), 1U) << name;
    EXPECT_EQ(ReadFile(Path(name)).size(), 1U << 20U);
  }
}

TEST_P(BehindTest, NoMoreConnectionsAreOpenedThanTheRemoteAllows) {
  for (const auto& [most, behind] : std::map<int, bool>{{1, false}, {2, false}, {3, true}}) {
    core::RemoteConfig remote = server_.remote();
    remote.max_connections = most;
    Use(remote);
    const std::string name = std::to_string(most);
    const std::uint64_t number = Leave(name, name);
    EXPECT_EQ(number != 0, behind) << most;
    EXPECT_TRUE(number == 0 || Behind::Await(cloud_.get(), number));
    EXPECT_EQ(ReadFile(Path(name)), name);
  }
}

TEST_P(BehindTest, ALostServerFailsWhatWaitsAndTakesNoMore) {
  const std::uint64_t first = Leave("0", RandomText(1 << 20));
  ASSERT_TRUE(Behind::Await(cloud_.get(), first));
  server_.Stop();
  EXPECT_FALSE(Behind::Await(cloud_.get(), Leave("1", "x")));
  EXPECT_EQ(VLIBCErrGet(), core::kErrHostDown);
  Behind::LetNext(cloud_.get());
  EXPECT_FALSE(Upload("2", "x"));
  EXPECT_EQ(Behind::LastOf(cloud_.get()), 0U);
}

}  // namespace
