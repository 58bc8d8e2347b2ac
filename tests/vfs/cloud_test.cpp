#include "cloud/cloud.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <thread>

#include "core/error.h"

namespace {

using TAVOCloud::CancelFn;
using TAVOCloud::Cloud;
using TAVOCloud::ProgressFn;
using TAVOCloud::ReadSizeFn;

unsigned long long counted = 0;
std::thread::id counting_thread;

int Count(unsigned long long bytes, unsigned long long /*unused*/) {
  counted += bytes;
  counting_thread = std::this_thread::get_id();
  return 0;
}

// A server that holds one file in memory and can break off at a byte.
class MemoryCloud : public Cloud {
 public:
  explicit MemoryCloud(std::string content) : content_(std::move(content)) {
    serverId_ = "sftp://mem/";
  }
  void FailAfter(std::size_t bytes, int error) {
    limit_ = bytes;
    error_ = error;
  }

  std::string Name() const override { return "mem"; }
  bool Connect(std::string* /*err*/) override { return true; }
  bool IsIgnoredPath(const std::string& /*path*/) override { return false; }
  bool IsAcceptedSize(std::uint64_t /*bytes*/) override { return true; }
  int Kind() const override { return 1; }
  bool Stat(const std::string&, std::uint64_t*, bool*) override { return false; }
  bool MakeFolder(const std::string&) override { return false; }
  bool Remove(const std::string&) override { return false; }
  bool Rename(const std::string&, const std::string&) override { return false; }
  bool CopyOnServer(const std::string&, const std::string&) override { return false; }

  bool Download(const std::string& path, int fd, std::uint64_t size, ProgressFn progress,
                CancelFn /*cancel*/, ReadSizeFn /*readSize*/) override {
    path_ = path;
    for (std::size_t at = 0; at < size;) {
      if (at >= limit_) return Fail(error_);
      const ssize_t put = write(fd, content_.data() + at, std::min<std::size_t>(4096, size - at));
      if (put <= 0) return Fail(core::kErrInputOutput);
      at += static_cast<std::size_t>(put);
      if (progress != nullptr) progress(static_cast<unsigned long long>(put), 0);
    }
    return true;
  }
  bool Upload(const std::string& path, int fd, std::uint64_t size, ProgressFn /*progress*/,
              CancelFn /*cancel*/, ReadSizeFn /*readSize*/) override {
    path_ = path;
    std::string buffer(4096, '\0');
    for (;;) {
      if (content_.size() >= limit_) return Fail(error_);
      const ssize_t got = read(fd, buffer.data(), buffer.size());
      if (got <= 0) break;
      content_.append(buffer, 0, static_cast<std::size_t>(got));
    }
    return content_.size() == size || Fail(core::kErrInputOutput);
  }

  std::string content_;
  std::string path_;

 private:
  static bool Fail(int error) {
    VLIBCErrSetEx(error, __FILE__, __LINE__);
    return false;
  }
  std::size_t limit_ = SIZE_MAX;
  int error_ = 0;
};

bool Copy(MemoryCloud& from, MemoryCloud& to) {
  counted = 0;
  return Cloud::CopyFile(&from, &to, "sftp://mem/dir/a", "sftp://mem/b", from.content_.size(),
                         &Count, nullptr, nullptr);
}

TEST(CloudTest, AFileIsCountedOnceOnItsWayAndTheFirstSideToFailGivesTheReason) {
  MemoryCloud source(std::string(3'000'000, 's'));
  MemoryCloud whole("");
  ASSERT_TRUE(Copy(source, whole));
  EXPECT_EQ(whole.content_, source.content_);
  EXPECT_EQ(source.path_ + whole.path_, "/dir/a/b");
  EXPECT_EQ(counted, source.content_.size());
  EXPECT_EQ(counting_thread, std::this_thread::get_id());
  MemoryCloud full("");
  full.FailAfter(100'000, core::kErrNoSpace);
  EXPECT_FALSE(Copy(source, full)) << "and the closed pipe did not end the process";
  EXPECT_EQ(VLIBCErrGet(), core::kErrNoSpace);

  MemoryCloud dest("");
  source.FailAfter(100'000, core::kErrHostDown);
  EXPECT_FALSE(Copy(source, dest));
  EXPECT_EQ(VLIBCErrGet(), core::kErrHostDown);
}

TEST(CloudTest, ServerPathsComeFromTheServersOwnPathsOnly) {
  const MemoryCloud cloud("");
  EXPECT_EQ(cloud.GetServerPathBySharePath("sftp://mem/a/b"), "/a/b");
  EXPECT_EQ(cloud.GetServerPathBySharePath("sftp://mem"), "/");
  EXPECT_EQ(cloud.GetServerPathBySharePath("/a/b"), "/a/b");
  EXPECT_EQ(cloud.GetServerPathBySharePath("sftp://mem2/a"), "");
  EXPECT_EQ(cloud.GetServerPathBySharePath(""), "");
}

TEST(CloudTest, WithoutAMountThereIsNoServerToTalkTo) {
  EXPECT_EQ(TAVOCloud::Utils::CreateCloudByURI(getuid(), "sftp://nas/", 1), nullptr);
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
  MemoryCloud cloud("x");
  EXPECT_FALSE(TAVOCloud::Dropbox::CopyFromRef(&cloud, "/a", "/b", &cloud));
  EXPECT_FALSE(Cloud::DownloadFile(nullptr, "/a", 0, 1, nullptr, nullptr, nullptr));
  EXPECT_FALSE(Cloud::UploadFile(&cloud, "/a", -1, 1, nullptr, nullptr, nullptr));
  EXPECT_EQ(VLIBCErrGet(), core::kErrBadArgument);
}

}  // namespace
