#include "support/errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "core/error.h"

namespace {

TEST(Errors, ErrnoBecomesTheCodeThatTellsTheUserWhy) {
  const std::pair<int, int> rows[] = {
      {EPERM, 407},     {EACCES, 407}, {ENOENT, 460},     {EROFS, 461},     {ENAMETOOLONG, 462},
      {ENOSPC, 463},    {EDQUOT, 415}, {EIO, 464},        {ENOTDIR, 465},   {EISDIR, 466},
      {EBUSY, 467},     {ELOOP, 468},  {EMFILE, 468},     {ENOMEM, 471},    {EEXIST, 1003},
      {EFBIG, 1007},    {EILSEQ, 418}, {EOPNOTSUPP, 422}, {EHOSTDOWN, 410}, {ENOTCONN, 451},
      {ECANCELED, 472}, {0, 401},      {ECHILD, 401},
  };
  for (const auto& [err, code] : rows) {
    errno = EDOM;
    EXPECT_EQ(WfmParseErrnoToError(err, "/", nullptr), code) << err;
    EXPECT_EQ(errno, EDOM) << err;
  }
}

TEST(Errors, CoreErrorsBecomeGeneralCodesAndLeaveErrnoAlone) {
  struct Row {
    int core;
    int err;
    int code;
  };
  const Row rows[] = {
      {0x0300, EACCES, 407},  {0x0300, EROFS, 461},  {0x0300, 0, 407},      {0x0700, 0, 460},
      {0x0800, ENOTDIR, 465}, {0x0900, EMFILE, 468}, {0x0900, 0, 401},      {0x0D00, 0, 400},
      {0x1100, 0, 410},       {0x2400, 0, 415},      {0x2900, ENOSPC, 463}, {0x2900, EDQUOT, 415},
      {0x6C00, 0, 464},       {0x8000, ENOSPC, 463}, {0x8000, 0, 401},      {0xA000, 0, 1004},
      {0xA200, 0, 1004},      {0xA300, 0, 1003},     {0xA400, 0, 1007},     {0xBE00, ELOOP, 418},
      {0xC300, 0, 462},       {0xD100, EIO, 407},    {0x1234, EDQUOT, 415}, {0, 0, 401},
  };
  for (const Row& row : rows) {
    errno = row.err;
    EXPECT_EQ(WfmParseTavoErrToError(row.core, "share", "/"), row.code) << std::hex << row.core;
    EXPECT_EQ(errno, row.err);
    EXPECT_EQ(WfmParseTavoErrToError(row.core, nullptr, nullptr), row.code);
  }
}

TEST(Errors, EachThreadHasItsOwnLastError) {
  support::SetErr(407);
  std::thread([] {
    EXPECT_EQ(WfmLibGetErr(), 0);
    support::SetErr(460);
  }).join();
  EXPECT_EQ(WfmLibGetErr(), 407);
}

}  // namespace
