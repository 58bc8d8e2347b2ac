#include "core/error.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <utility>

TEST(LastError, KeepsCodeAndPlaceAndLeavesErrnoAlone) {
  static const char kFile[] = "some file";
  errno = EDQUOT;
  VLIBCErrSetEx(core::kErrQuota, kFile, 17);
  EXPECT_EQ(errno, EDQUOT);
  EXPECT_EQ(VLIBCErrGet(), core::kErrQuota);
  EXPECT_EQ(core::LastErrorPlace().file, kFile);
  EXPECT_EQ(core::LastErrorPlace().line, 17);
}

TEST(LastError, BelongsToOneThread) {
  VLIBCErrSetEx(core::kErrNoSpace, "here", 1);
  int fresh = -1;
  const char* fresh_file = "unset";
  std::thread([&] {
    fresh = VLIBCErrGet();
    fresh_file = core::LastErrorPlace().file;
    VLIBCErrSetEx(core::kErrExists, "there", 2);
  }).join();
  EXPECT_EQ(fresh, core::kErrNone);
  EXPECT_EQ(fresh_file, nullptr);
  EXPECT_EQ(VLIBCErrGet(), core::kErrNoSpace);
}

TEST(ErrorFromErrno, GivesEachReasonItsCode) {
  constexpr std::pair<int, int> kRows[] = {
      {0, 0},           {EPERM, 0x0300},      {EACCES, 0x0300},       {EROFS, 0x0300},
      {ENOENT, 0x0700}, {EOPNOTSUPP, 0x0800}, {EILSEQ, 0x0800},       {ECONNREFUSED, 0x0900},
      {EINVAL, 0x0D00}, {EHOSTDOWN, 0x1100},  {EHOSTUNREACH, 0x1100}, {ENOTCONN, 0x1100},
      {ESTALE, 0x1100}, {ETIMEDOUT, 0x1100},  {EDQUOT, 0x2400},       {ENOSPC, 0x2900},
      {EIO, 0x6C00},    {ENXIO, 0x6C00},      {ENOTDIR, 0xA000},      {EISDIR, 0xA200},
      {EEXIST, 0xA300}, {EFBIG, 0xA400},      {ELOOP, 0xBE00},        {ENAMETOOLONG, 0xC300},
      {ENOMEM, 0x8000}, {EINTR, 0x8000},
  };
  for (const auto& [err, code] : kRows) EXPECT_EQ(core::ErrorFromErrno(err), code) << err;
}

TEST(ErrorFromErrno, NeverCallsAFailureASuccess) {
  for (int err = -10; err < 600; ++err) {
    EXPECT_EQ(core::ErrorFromErrno(err) == core::kErrNone, err == 0) << err;
  }
}
