#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "core/error.h"
#include "core/unique_fd.h"
#include "engine_fixture.h"
#include "fake_cloud.h"
#include "fake_mounts.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

using namespace Fennox;
namespace fs = std::filesystem;

namespace {

constexpr long kBelow = 10485759;
constexpr long kBorder = 10485760;

class TransferTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    Folder("src");
    Folder("dst");
    Folder("server/srv/src");
    Folder("server/srv/dst");
  }

  // A side lies on a mount of this protocol, or on a local folder when it is "".
  void Mount(const std::string& side, const std::string& protocol, int maxConnections = 0) {
    PathInfo info;
    info.sharePath = "/" + side;
    info.realPath = At(side);
    if (!protocol.empty()) {
      FakeMount& mount = AddMount(protocol, side, At(side));
      mount.info.max_connections = maxConnections;
      info.sharePath = mount.info.base_uri;
      info.remoteBase = mount.info.remote_base;
      info.codePage = "UTF-8";
    }
    if (side == "src") _srcPathInfos = {info};
    if (side == "dst") _destPathInfo = info;
  }

  void Sides(const std::string& from, const std::string& to, int fromMax = 0, int toMax = 0) {
    fakeMounts.clear();
    _mapCopyParam.clear();
    cloudScript.calls.clear();
    Mount("src", from, fromMax);
    Mount("dst", to, toMax);
  }

  // The source on its mount and on its server.
  void Source(const std::string& name, const std::string& content) {
    Write("src/" + name, content);
    Write("server/srv/src/" + name, content);
  }

  void SourceOfSize(const std::string& name, long size) {
    Source(name, "");
    fs::resize_file(At("src/" + name), static_cast<std::uintmax_t>(size));
  }

  // Calls the data hook as the copier does, on descriptors or on none.
  int Move(const std::string& name, long size = -1) {
    in_.reset(open(At("src/" + name).c_str(), O_RDONLY));
    out_.reset(open(At("dst/" + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
    if (size < 0) size = static_cast<long>(fs::file_size(At("src/" + name)));
    errno = 0;
    return Call(name, size);
  }
  int Call(const std::string& name, long size) {
    int in = in_.release();
    int out = out_.release();
    const int result = MVCPReadWriteData(At("src/" + name).c_str(), At("dst/" + name).c_str(), &in,
                                         &out, size, nullptr, nullptr, nullptr);
    in_.reset(in);
    out_.reset(out);
    return result;
  }

  core::UniqueFd in_, out_;
};

TEST_F(TransferTest, TheProtocolsAndTheSizePickTheWay) {
  struct Row {
    const char* from;
    const char* to;
    long size;
    int fromMax, toMax;
    const char* call;  // "" for the descriptor copy
  };
  const Row rows[] = {
      {"", "", kBorder, 0, 0, ""},
      {"plain", "", kBorder, 0, 0, ""},
      {"", "plain", kBorder, 0, 0, ""},
      {"plain", "plain", kBorder, 1, 1, ""},
      {"ftp", "", kBelow, 0, 0, ""},
      {"ftp", "", kBorder, 0, 0, "download"},
      {"ftps", "", kBelow, 0, 0, ""},
      {"ftps", "", kBorder, 0, 0, "download"},
      {"ftp", "", kBorder, 1, 0, ""},
      {"ftp", "", kBorder, 2, 0, "download"},
      {"sftp", "", kBelow, 1, 0, "download"},
      {"dropbox", "", 1, 0, 0, "download"},
      {"", "ftp", 1, 0, 0, "upload"},
      {"", "ftp", 1, 0, 1, "upload"},
      {"", "sftp", 1, 0, 1, "upload"},
      {"plain", "sftp", 1, 0, 0, "upload"},
      {"plain", "ftp", 1, 0, 0, "upload"},
      {"ftp", "ftp", kBelow, 0, 0, ""},
      {"ftp", "ftps", kBorder, 0, 0, "copy"},
      {"ftp", "ftp", kBorder, 0, 1, ""},
      {"ftp", "sftp", kBelow, 0, 0, "copy"},
      {"ftp", "sftp", kBorder, 1, 0, ""},
      {"ftp", "sftp", kBorder, 0, 1, ""},
      {"ftp", "webdav", 1, 1, 0, "copy"},
      {"sftp", "ftp", 1, 1, 1, "copy"},
      {"sftp", "sftp", 1, 1, 1, "copy"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.from) + " to " + row.to + ", " + std::to_string(row.size) + ", " +
                 std::to_string(row.fromMax) + "/" + std::to_string(row.toMax));
    Sides(row.from, row.to, row.fromMax, row.toMax);
    SourceOfSize("f", row.size);
    EXPECT_EQ(Move("f"), 0);
    EXPECT_EQ(OnlyCall(), row.call);
    const bool byDescriptor = std::string(row.call).empty();
    if (byDescriptor) {
      EXPECT_EQ(fs::file_size(At("dst/f")), static_cast<std::uintmax_t>(row.size));
    }
    EXPECT_EQ(staleMarks > 0, !byDescriptor);
    staleMarks = 0;
  }
}

TEST_F(TransferTest, ASourceThatNeedsTheCloudHasNoWayToAPlainMount) {
  Sides("sftp", "plain");
  Source("f", "x");
  EXPECT_EQ(Move("f"), -1);
  EXPECT_EQ(OnlyCall(), "");
}

TEST_F(TransferTest, ADownloadReplacesWhatAFailedCopyThroughTheMountLeft) {
  Sides("ftp", "");
  Source("f", "content");
  in_.reset(open(At("src/f").c_str(), O_WRONLY));  // reading fails
  out_.reset(open(At("dst/f").c_str(), O_RDWR | O_CREAT, 0644));
  ASSERT_EQ(write(out_.get(), "left behind", 11), 11);
  EXPECT_EQ(Call("f", 7), 0);
  EXPECT_EQ(OnlyCall(), "download");
  EXPECT_EQ(Read("dst/f"), "content");
}

TEST_F(TransferTest, ASourceMountIsLookedUpOnceAndItsLimitHoldsForThatFile) {
  Sides("ftp", "", 1);
  SourceOfSize("a", kBorder);
  SourceOfSize("b", kBorder);
  EXPECT_EQ(Move("a"), 0);
  EXPECT_EQ(OnlyCall(), "");
  EXPECT_EQ(Move("b"), 0);
  EXPECT_EQ(OnlyCall(), "download");
  ASSERT_EQ(_mapCopyParam.size(), 1U);
  const COPY_PARM& cached = _mapCopyParam.at("/srv/src");
  EXPECT_EQ(cached.protocol, "ftp");
  EXPECT_EQ(cached.remoteBase, "/srv/src");
  EXPECT_EQ(cached.codePage, "UTF-8");
  EXPECT_TRUE(cached.enableCurl);
}

TEST_F(TransferTest, TheDestinationIsLookedUpForEveryFile) {
  Sides("", "ftp");
  Source("f", "x");
  EXPECT_EQ(Move("f"), 0);
  EXPECT_EQ(_destCopyParam.protocol, "ftp");
  EXPECT_EQ(_destCopyParam.remoteBase, "");
  fakeMounts.clear();
  AddMount("sftp", "dst", At("dst"));
  _destPathInfo.sharePath = "sftp://dst/";
  EXPECT_EQ(Move("f"), 0);
  EXPECT_EQ(_destCopyParam.protocol, "sftp");
}

TEST_F(TransferTest, UnknownMountsAreRefusedAndLogged) {
  Sides("sftp", "");
  Source("f", "x");
  _srcPathInfos[0].realPath = At("sr");
  EXPECT_EQ(Move("f"), -1);
  EXPECT_EQ(Logged(1033), 1);
  Sides("sftp", "");
  _srcPathInfos[0].sharePath = "sftp://gone/";
  EXPECT_EQ(Move("f"), -1);
  EXPECT_EQ(Logged(1009), 1);
  Sides("", "sftp");
  _destPathInfo.sharePath = "sftp://gone/";
  EXPECT_EQ(Move("f"), -1);
  EXPECT_EQ(Logged(1056), 1);
  Sides("odd", "");
  EXPECT_EQ(Move("f"), -1);
  EXPECT_EQ(Logged(1015), 1);
  Sides("", "odd");
  EXPECT_EQ(Move("f"), -1);
  EXPECT_EQ(Logged(1060), 1);
  EXPECT_EQ(Logged(1033), 1) << "each failure has one line";
  EXPECT_EQ(MVCPReadWriteData(nullptr, "/x", nullptr, nullptr, 0, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(VLIBCErrGet(), 0x0D00);
  EXPECT_EQ(core::LastErrorPlace().line, 979);
}

TEST_F(TransferTest, AServerThatCannotBeReachedIsASystemError) {
  cloudScript.reachable = false;
  struct Row {
    const char* from;
    const char* to;
    int line;
  };
  for (const Row& row : {Row{"sftp", "", 1135}, Row{"", "ftp", 1162}}) {
    Sides(row.from, row.to);
    Source("f", "x");
    EXPECT_EQ(Move("f"), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x8000);
    EXPECT_EQ(core::LastErrorPlace().line, row.line);
  }
}

TEST_F(TransferTest, WithoutOneMoreConnectionTheMountTakesOver) {
  const std::string content(20000, 'c');
  cloudScript.transfers = false;
  cloudScript.breakAfter = 8192;
  cloudScript.errorCode = 40;
  struct Row {
    const char* from;
    const char* to;
    long size;
  };
  // A size at the border keeps a small file from the descriptor copy; the copy
  // itself then goes by the source's end.
  for (const Row& row :
       {Row{"ftp", "", kBorder}, Row{"", "ftp", 20000}, Row{"ftp", "ftp", kBorder}}) {
    SCOPED_TRACE(std::string(row.from) + " to " + row.to);
    Sides(row.from, row.to);
    Source("f", content);
    fs::resize_file(At("src/f"), static_cast<std::uintmax_t>(row.size));
    EXPECT_EQ(Move("f", row.size), 0);
    EXPECT_EQ(fs::file_size(At("dst/f")), static_cast<std::uintmax_t>(row.size));
    EXPECT_EQ(Read("dst/f"), Read("src/f"));
    EXPECT_EQ(cloudScript.alive, 0);
    EXPECT_EQ(_srcCloud, nullptr);
    EXPECT_EQ(_destCloud, nullptr);
  }
}

TEST_F(TransferTest, OtherFailuresDropFtpConnectionsAndKeepOthers) {
  cloudScript.transfers = false;
  cloudScript.errorCode = 7;
  Sides("", "ftp");
  Source("f", "x");
  EXPECT_EQ(Move("f"), -1);
  EXPECT_EQ(cloudScript.alive, 0);
  cloudScript.errorCode = 40;
  Sides("", "sftp");
  EXPECT_EQ(Move("f"), -1);
  EXPECT_EQ(cloudScript.alive, 1);
  EXPECT_EQ(staleMarks, 0);
}

// What cannot be opened: nothing at all in place of a folder, or a socket.
TEST_F(TransferTest, AFallbackThatCannotOpenItsFileSaysWhy) {
  cloudScript.transfers = false;
  cloudScript.errorCode = 40;
  struct Row {
    const char* from;
    const char* to;
    int core, line, logged;
    bool socket;
  };
  for (const Row& row :
       {Row{"ftp", "", 0x0900, 1206, 1205, false}, Row{"ftp", "", 0x6C00, 1199, 0, true},
        Row{"", "ftp", 0x0900, 1222, 1221, false}, Row{"", "ftp", 0x6C00, 1215, 0, true}}) {
    SCOPED_TRACE(row.line);
    Sides(row.from, row.to);
    SourceOfSize("in/f", kBorder);
    Folder("dst/in");
    const std::string src = At("src/in/f");
    const std::string dst = At("dst/in/f");
    const std::string lost = *row.from != '\0' ? src : dst;
    in_.reset(open(src.c_str(), O_RDONLY));
    out_.reset(open(dst.c_str(), O_WRONLY | O_CREAT, 0644));
    fs::remove_all(fs::path(lost).parent_path());
    if (row.socket) {
      fs::create_directory(fs::path(lost).parent_path());
      ASSERT_EQ(mknod(lost.c_str(), S_IFSOCK | 0644, 0), 0);
    }
    EXPECT_EQ(Call("in/f", kBorder), -1);
    EXPECT_EQ(errno, row.socket ? ENXIO : ENOENT);
    EXPECT_EQ(VLIBCErrGet(), row.core);
    EXPECT_EQ(core::LastErrorPlace().line, row.line);
    EXPECT_EQ(Logged(row.logged), row.logged != 0 ? 1 : 0);
    EXPECT_FALSE(lost == src ? in_.valid() : out_.valid());
    fs::remove_all(At("src/in"));
    fs::remove_all(At("dst/in"));
  }
}

TEST_F(TransferTest, ACompanionThatCannotBeOpenedIsLogged) {
  const std::string src = At("src/c");
  ASSERT_EQ(mknod(src.c_str(), S_IFSOCK | 0644, 0), 0);
  Sides("", "sftp");
  EXPECT_EQ(MVCPReadWriteDataCallback(src.c_str(), At("dst/c").c_str()), -1);
  EXPECT_EQ(core::LastErrorPlace().line, 1150);
  EXPECT_EQ(Logged(1152), 1);
  Sides("", "");
  EXPECT_EQ(MVCPReadWriteDataCallback(src.c_str(), At("dst/c").c_str()), 0);
  EXPECT_EQ(core::LastErrorPlace().line, 930);
  EXPECT_EQ(Logged(933), 1);
  EXPECT_EQ(Logged(1102), 1);
  EXPECT_FALSE(fs::exists(At("dst/c")));
}

TEST_F(TransferTest, ServersOfOneKindCopyAmongThemselves) {
  struct Row {
    int from, to;
    bool sameServer;
    const char* call;
    int line;
  };
  const Row rows[] = {
      {3, 3, true, "server copy @/srv/src/f @/srv/dst/f", 110},
      {3, 3, false, "by reference", 117},
      {2, 2, true, "server copy @/srv/src/f @/srv/dst/f", 123},
      {2, 2, false, "copy", 128},
      {1, 1, true, "copy", 128},
      {1, 3, true, "copy", 128},
      {3, 2, true, "copy", 128},
  };
  for (const bool works : {true, false}) {
    for (const Row& row : rows) {
      SCOPED_TRACE(std::to_string(row.from) + std::to_string(row.to) +
                   std::to_string(row.sameServer));
      cloudScript.srcKind = row.from;
      cloudScript.destKind = row.to;
      cloudScript.sameServer = row.sameServer;
      cloudScript.transfers = works;
      delete std::exchange(_srcCloud, nullptr);
      delete std::exchange(_destCloud, nullptr);
      Sides("sftp", "webdav");
      Source("f", "x");
      const int before = Logged(row.line);
      EXPECT_EQ(Move("f"), works ? 0 : -1);
      EXPECT_EQ(OnlyCall(), row.call);
      EXPECT_EQ(Logged(row.line) - before, works ? 0 : 1);
    }
  }
}

TEST_F(TransferTest, AMissingFileIsMarkedStaleOnceMoreLater) {
  Sides("sftp", "sftp");
  Source("f", "x");
  makeAfterFirstMark = At("dst/f");
  for (const int marks : {2, 1}) {
    staleMarks = 0;
    EXPECT_EQ(Call("f", 1), 0);
    EXPECT_EQ(staleMarks, marks);
  }
}

TEST_F(TransferTest, CompanionsAreCopiedOrMovedByPath) {
  Sides("", "");
  Write("src/c", "companion");
  const std::string src = At("src/c");
  const std::string dst = At("dst/c");
  EXPECT_EQ(MVCPReadWriteDataCallback(At("src/none").c_str(), dst.c_str()), 0);
  EXPECT_FALSE(fs::exists(dst));

  EXPECT_EQ(MVCPReadWriteDataCallback(src.c_str(), dst.c_str()), 0);
  EXPECT_EQ(Read("dst/c"), "companion");
  EXPECT_EQ(fs::status(dst).permissions(), fs::perms(0777));
  EXPECT_TRUE(fs::exists(src));

  _copyOptions.moveFlag = 1;
  EXPECT_EQ(MVCPReadWriteDataCallback(src.c_str(), dst.c_str()), 0);
  EXPECT_FALSE(fs::exists(src));

  EXPECT_EQ(MVCPReadWriteDataCallback(dst.c_str(), At("none/c").c_str()), 0);
  EXPECT_EQ(Logged(1091), 1);
  EXPECT_EQ(Read("dst/c"), "companion");

  const std::string other = OtherVolume();
  if (other.empty()) GTEST_SKIP() << "needs a second file system";
  EXPECT_EQ(MVCPReadWriteDataCallback(dst.c_str(), (other + "/c").c_str()), 0);
  EXPECT_FALSE(fs::exists(dst));
  EXPECT_EQ(fs::file_size(other + "/c"), 9U);
}

TEST_F(TransferTest, CompanionsGoToRemoteMountsThroughTheCloudOnly) {
  Write("src/c", "companion");
  const std::string src = At("src/c");
  const std::string dst = At("dst/c");
  Sides("", "dropbox");
  EXPECT_EQ(MVCPReadWriteDataCallback(src.c_str(), dst.c_str()), 0);
  EXPECT_EQ(OnlyCall(), "");

  Sides("", "sftp");
  EXPECT_EQ(MVCPReadWriteDataCallback(src.c_str(), dst.c_str()), 0);
  EXPECT_EQ(OnlyCall(), "upload");
  EXPECT_EQ(Read("server/srv/dst/c"), "companion");
  EXPECT_EQ(staleMarks, 0);

  Sides("sftp", "");
  Write("server/srv/src/c", "from the server");
  EXPECT_EQ(MVCPReadWriteDataCallback(src.c_str(), dst.c_str()), 0);
  EXPECT_EQ(Read("dst/c"), "from the server");
}

}  // namespace
