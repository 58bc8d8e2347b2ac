#include <cerrno>
#include <cstring>

#include "core/error.h"
#include "engine_fixture.h"
#include "fake_mounts.h"
#include "support/errors.h"
#include "webapi/module_calls.h"

using Fennox::MVCPParseCopyError;

namespace {

constexpr char kLocal[] = "/local/f";
constexpr char kRemote[] = "/remote/f";
constexpr char kCloud[] = "/cloud/f";

// Where the general mapping of the support library must have the word.
constexpr int kGeneral = -1;

struct Row {
  int core;
  int err;
  const char* src;
  const char* dst;
  const char* folder;
  int expected;
  bool logged;
};

std::string Describe(const Row& row) {
  char text[200];
  std::snprintf(text, sizeof text, "%X errno %d, %s to %s in %s", static_cast<unsigned>(row.core),
                row.err, row.src, row.dst, row.folder);
  return text;
}

class CopyErrorTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    AddMount("sftp", "nas", "/remote");
    AddMount("dropbox", "box", "/cloud");
  }

  void Check(const Row& row) const {
    SCOPED_TRACE(Describe(row));
    const int before = Logged(1490);
    VLIBCErrSetEx(row.core, "test", 1);
    errno = row.err;
    int expected = row.expected;
    if (expected == kGeneral) {
      expected = WfmParseTavoErrToError(row.core, "share", row.folder);
      errno = row.err;
    }
    EXPECT_EQ(MVCPParseCopyError(row.src, row.dst, "share", row.folder), expected);
    EXPECT_EQ(Logged(1490) - before, row.logged ? 1 : 0);
  }
};

TEST_F(CopyErrorTest, ConflictsAndRefusalsAreAnsweredWithoutALogLine) {
  const Row rows[] = {
      {0xA200, EIO, kLocal, kLocal, "/local", 1004, false},
      {0xA000, 0, kLocal, kCloud, "/cifs", 1004, false},
      {0xA300, ECONNREFUSED, kCloud, kLocal, "/local", 1003, false},
      {0xD100, EOPNOTSUPP, kLocal, kLocal, "/local", 407, false},
      {0x0800, EOPNOTSUPP, kLocal, kCloud, "/local", 422, false},
      {0x0800, EILSEQ, kLocal, kCloud, "/local", 2119, false},
      {0x0800, EILSEQ, kCloud, kLocal, "/local", 418, false},
      {0x0800, EACCES, kLocal, kLocal, "/local", kGeneral, false},
  };
  for (const Row& row : rows) Check(row);
}

TEST_F(CopyErrorTest, CoreErrorsWithACodeOfTheirOwn) {
  const Row rows[] = {
      {0x8200, 0, kLocal, kLocal, "/local", 2116, true},
      {0xA400, EFBIG, kLocal, kCloud, "/local", 2116, true},
      {0xA400, EFBIG, kCloud, kRemote, "/local", 1007, true},
      {0xA500, 0, kLocal, kLocal, "/local", 1003, true},
      {0xD900, EOPNOTSUPP, kRemote, kRemote, "/local", 422, true},
      {0x2400, EDQUOT, kLocal, kLocal, "/cifs", 415, true},
  };
  for (const Row& row : rows) Check(row);
}

TEST_F(CopyErrorTest, LostPeersAreToldApartByWhereTheyWere) {
  const Row rows[] = {
      {0x6C00, EIO, kLocal, kRemote, "/cifs", 2114, true},
      {0x6C00, EIO, kRemote, kLocal, "/cifs", 2114, true},
      {0x6C00, EIO, kLocal, kLocal, "/cifs", 451, true},
      {0x6C00, EIO, kLocal, kLocal, "/nfs", 410, true},
      {0x6C00, EIO, kLocal, kLocal, "/local", 422, true},
      {0x1100, EHOSTDOWN, kLocal, kCloud, "/cifs", 2109, true},
      {0x1100, EHOSTDOWN, kRemote, kLocal, "/cifs", 2109, true},
      {0x1100, EHOSTDOWN, kLocal, kLocal, "/cifs", 451, true},
      {0x1100, EHOSTDOWN, kLocal, kLocal, "/local", 410, true},
      {0x1100, EHOSTDOWN, kLocal, kLocal, "nowhere", 410, true},
  };
  for (const Row& row : rows) Check(row);
}

TEST_F(CopyErrorTest, UnreadableFilesAskTheMount) {
  for (const int core : {0x0600, 0x0700, 0x0900}) {
    const Row rows[] = {
        {core, ENOENT, kCloud, kLocal, "/cifs", 451, true},
        {core, ENOENT, kLocal, kLocal, "/nfs", 410, true},
        {core, ECONNREFUSED, kCloud, kLocal, "/local", 2115, true},
        {core, ECONNREFUSED, kLocal, kCloud, "nowhere", 2115, true},
        {core, ENOENT, kLocal, kCloud, "/local", 422, true},
        {core, ECONNREFUSED, kRemote, kLocal, "/local", 422, true},
    };
    for (const Row& row : rows) Check(row);
  }
}

TEST_F(CopyErrorTest, OtherErrorsGoByErrnoAndThenByTheGeneralMapping) {
  const Row rows[] = {
      {0xBE00, 0, kLocal, kCloud, "/local", 2119, true},
      {0xBE00, EIO, kCloud, kLocal, "/local", 418, true},
      {0xBE00, EOPNOTSUPP, kLocal, kCloud, "/local", 422, true},
      {0x8000, EILSEQ, kLocal, kLocal, "/local", 418, true},
      {0x8000, EOPNOTSUPP, kLocal, kLocal, "/local", 422, true},
      {0x2900, ENOSPC, kLocal, kLocal, "/local", kGeneral, true},
      {0x1234, 0, kLocal, kLocal, "/local", kGeneral, true},
  };
  for (const Row& row : rows) Check(row);
}

TEST_F(CopyErrorTest, TheLogLineNamesPathsCodeAndReason) {
  VLIBCErrSetEx(0x6C00, "test", 1);
  errno = EIO;
  MVCPParseCopyError("/a/x", "/b/x", "share", "/b");
  ASSERT_EQ(LogLines().size(), 1U);
  EXPECT_EQ(LogLines()[0],
            std::string("TAVO.Fennox.CopyMove:1490 Failed to copy /a/x to /b/x, reason=[6C00], ") +
                std::strerror(EIO));
}

}  // namespace
