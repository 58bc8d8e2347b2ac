#include "host/server/frames.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

namespace host {
namespace {

constexpr int kLong = 30000;

struct Pair {
  explicit Pair(int type = SOCK_STREAM) { EXPECT_TRUE(MakeSocketPair(type, &a, &b)); }
  core::UniqueFd a;
  core::UniqueFd b;
};

void SendRaw(int fd, const std::string& bytes) {
  ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(bytes.size()));
}

TEST(Frames, ArriveWholeAndInOrderWhateverTheirSize) {
  const Pair pair;
  const std::string big(5'000'001, 'x');
  std::thread sender([&] {
    for (const std::string& text : {std::string(), std::string("one"), big}) {
      EXPECT_EQ(SendFrame(pair.a.get(), text, kLong), FrameStatus::kOk);
    }
  });
  std::string got;
  for (const std::string& text : {std::string(), std::string("one"), big}) {
    EXPECT_EQ(ReceiveFrame(pair.b.get(), kMaxAnswerFrame, kLong, &got), FrameStatus::kOk);
    EXPECT_TRUE(got == text) << got.size();
  }
  sender.join();
}

TEST(Frames, DamagedOnesAreToldApart) {
  const struct {
    std::string bytes;
    FrameStatus status;
  } cases[] = {
      {"", FrameStatus::kEnd},
      {std::string("\0\0", 2), FrameStatus::kTruncated},
      {std::string("\0\0\0\5", 4), FrameStatus::kTruncated},
      {std::string("\0\0\0\5abc", 7), FrameStatus::kTruncated},
      {"garbage that is no frame at all", FrameStatus::kTooLarge},
      {std::string("\0\0\4\1", 4) + std::string(1025, 'x'), FrameStatus::kTooLarge},
      {std::string("\0\0\4\0", 4) + std::string(1024, 'x'), FrameStatus::kOk},
  };
  for (const auto& c : cases) {
    Pair pair;
    SendRaw(pair.a.get(), c.bytes);
    pair.a.reset();
    std::string got = "old";
    EXPECT_EQ(ReceiveFrame(pair.b.get(), 1024, kLong, &got), c.status) << c.bytes;
    if (c.status != FrameStatus::kOk) {
      EXPECT_EQ(got, "");
    }
  }
}

TEST(Frames, SilentPeersAndGoneReadersAreNoticed) {
  Pair pair;
  std::string got;
  SendRaw(pair.a.get(), std::string("\0\0", 2));
  EXPECT_EQ(ReceiveFrame(pair.b.get(), 1024, 20, &got), FrameStatus::kTimeout);
  EXPECT_EQ(SendFrame(pair.a.get(), std::string(8 << 20, 'x'), 20), FrameStatus::kTimeout);
  pair.b.reset();
  EXPECT_EQ(SendFrame(pair.a.get(), "x", kLong), FrameStatus::kEnd);
}

// What a descriptor that arrived says, to know that it is the one that was sent.
std::string ReadFrom(const core::UniqueFd& fd) {
  std::string text(16, '\0');
  const ssize_t n = ::read(fd.get(), text.data(), text.size());
  text.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return text;
}

TEST(Descriptors, ArriveOneInEachMessageAndCloseOnExec) {
  const Pair channel(SOCK_SEQPACKET);
  for (const std::string text : {"first", "second"}) {
    const Pair carried;
    SendRaw(carried.a.get(), text);
    ASSERT_TRUE(SendDescriptor(channel.a.get(), carried.b.get()));
  }
  for (const std::string text : {"first", "second"}) {
    core::UniqueFd fd;
    ASSERT_EQ(ReceiveDescriptor(channel.b.get(), &fd), DescriptorStatus::kOk);
    EXPECT_EQ(ReadFrom(fd), text);
    EXPECT_NE(::fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, 0);
  }
}

TEST(Descriptors, OtherMessagesAreDroppedAndTheNextOneIsReceived) {
  Pair channel(SOCK_SEQPACKET);
  const Pair carried;
  for (const std::string& bytes : {std::string("x"), std::string(), std::string(5000, 'x')}) {
    SendRaw(channel.a.get(), bytes);
    core::UniqueFd fd;
    EXPECT_EQ(ReceiveDescriptor(channel.b.get(), &fd), DescriptorStatus::kMalformed);
    EXPECT_FALSE(fd.valid());
  }
  core::UniqueFd fd;
  ASSERT_TRUE(SendDescriptor(channel.a.get(), carried.b.get()));
  EXPECT_EQ(ReceiveDescriptor(channel.b.get(), &fd), DescriptorStatus::kOk);
  channel.a.reset();
  EXPECT_EQ(ReceiveDescriptor(channel.b.get(), &fd), DescriptorStatus::kEnd);
}

}  // namespace
}  // namespace host
