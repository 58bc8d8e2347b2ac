// Files that several threads read from one server, over connections of their own.
#include "cloud/read_ahead.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <thread>

#include "core/unique_fd.h"
#include "transfer_fixture.h"

namespace {

using TAVOCloud::ReadAhead;

std::atomic<int> stop{0};
int IsStopped() { return stop; }

class ReadAheadTest : public TransferTest, public testing::WithParamInterface<const char*> {
 protected:
  void Start(std::vector<std::string> options = {}) {
    stop = 0;
    if (!StartServer(GetParam(), std::move(options))) GTEST_SKIP() << "no server can run here";
    WriteFile(Path("file"), RandomText(kSize), 0644);
  }
  // The content, or why there is none: errno after "failed ".
  std::string Fetch(ReadAhead& ahead, const std::string& name, std::uint64_t size) {
    const core::UniqueFd fd(open(folder_.c_str(), O_TMPFILE | O_RDWR, 0600));
    if (!ahead.Fetch(Path(name), fd.get(), size, &IsStopped)) {
      return "failed " + std::to_string(errno);
    }
    return ReadFile("/proc/self/fd/" + std::to_string(fd.get()));
  }
  static constexpr std::size_t kSize = 200'000;
};

INSTANTIATE_TEST_SUITE_P(Protocols, ReadAheadTest, testing::Values("ftp", "ftps"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(ReadAheadTest, SeveralThreadsGetWholeFilesAndNoneOfAnotherSize) {
  ASSERT_NO_FATAL_FAILURE(Start());
  if (IsSkipped()) return;
  ReadAhead ahead(*cloud_);
  std::array<std::thread, 5> threads;
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      for (int i = 0; i < 5; ++i) {
        // There are three connections for five threads.
        const std::string got = Fetch(ahead, "file", kSize);
        EXPECT_TRUE(got == RandomText(kSize) || got == "failed " + std::to_string(EAGAIN));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Fetch(ahead, "file", kSize - 1), "failed " + std::to_string(EIO));
  EXPECT_EQ(Fetch(ahead, "file", kSize + 1), "failed " + std::to_string(EIO));
  EXPECT_EQ(Fetch(ahead, "none", kSize), "failed " + std::to_string(ENOENT));
  EXPECT_TRUE(Fetch(ahead, "file", kSize) == RandomText(kSize)) << "it still works";
}

TEST_P(ReadAheadTest, EndsWhenTheServerRefusesAConnectionOrIsLostAndWhenToldTo) {
  ASSERT_NO_FATAL_FAILURE(Start({"--max-clients", "1"}));
  if (IsSkipped()) return;
  std::string err;
  ASSERT_TRUE(cloud_->Connect(&err)) << err;  // has the only connection
  const std::string at_once = "failed " + std::to_string(EAGAIN);
  ReadAhead refused(*cloud_);
  EXPECT_NE(Fetch(refused, "file", kSize), at_once);
  EXPECT_EQ(Fetch(refused, "file", kSize), at_once);
  ReadAhead told(*cloud_);
  told.GiveUp();
  EXPECT_EQ(Fetch(told, "file", kSize), at_once);
  server_.Stop();
  ReadAhead lost(*cloud_);
  EXPECT_NE(Fetch(lost, "file", kSize), at_once);
  EXPECT_EQ(Fetch(lost, "file", kSize), at_once);
}

}  // namespace
