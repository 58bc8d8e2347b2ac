// The thread that writes a large download.
#include "write_behind.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "core/unique_fd.h"

namespace {

using TAVOCloud::WriteBehind;

constexpr std::chrono::milliseconds kStep{20};

// Hands on as much as is taken, in pieces as they come from a socket.
std::size_t Give(WriteBehind* writer, const std::string& data) {
  std::size_t given = 0;
  while (given < data.size() && writer->error() == 0) {
    const auto room = writer->Room(kStep);
    const std::size_t part = std::min({room.size(), data.size() - given, std::size_t{16411}});
    std::copy_n(data.data() + given, part, room.data());
    writer->Filled(part);
    given += part;
  }
  return given;
}

TEST(WriteBehindTest, KeepsTheOrderAndLeavesNothingBehind) {
  std::string data(5'000'017, '\0');
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + i / 65521);
  const core::UniqueFd file(::memfd_create("written", MFD_CLOEXEC));
  {
    WriteBehind writer(file.get());
    EXPECT_EQ(Give(&writer, data.substr(0, 300'000)), 300'000U);
    while (!writer.AwaitWritten(kStep)) {
    }
    EXPECT_EQ(::lseek(file.get(), 0, SEEK_CUR), 300'000) << "all of it was waited for";
    EXPECT_EQ(Give(&writer, data.substr(300'000)), data.size() - 300'000);
  }
  std::string written(data.size() + 1, '\0');
  ASSERT_EQ(::pread(file.get(), written.data(), written.size(), 0),
            static_cast<ssize_t>(data.size()));
  written.pop_back();
  EXPECT_TRUE(written == data);
}

TEST(WriteBehindTest, AFullDiskEndsItWithoutAHang) {
  const core::UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  WriteBehind writer(full.get());
  EXPECT_LT(Give(&writer, std::string(8'000'000, 'x')), 8'000'000U);
  EXPECT_TRUE(writer.AwaitWritten(kStep));
  EXPECT_EQ(writer.error(), ENOSPC);
  EXPECT_TRUE(writer.Room(kStep).empty());
}

}  // namespace
