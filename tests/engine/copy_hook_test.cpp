// The per-file hook and the small functions beside it.
#include <cerrno>
#include <ctime>

#include "core/error.h"
#include "core/fs_type.h"
#include "engine_fixture.h"
#include "fake_cloud.h"
#include "fake_mounts.h"
#include "support/bandwidth.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

using namespace Fennox;
namespace fs = std::filesystem;

namespace {

class CopyHookTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    Folder("src");
    Folder("dst");
    Write("src/f", "content");
    _copyOptions.conflictPolicy = -1;
    _copyOptions.keepMetadata = 1;
  }

  int Copy(const std::string& from, const std::string& to, int dstFsType = -1) {
    return MVCPCopyFileCallback(At(from).c_str(), At(to).c_str(), &_copyOptions, -1, dstFsType, 0,
                                nullptr);
  }

  void MountDestination(const std::string& protocol) {
    AddMount(protocol, "dst", At("dst"));
    _destPathInfo.realPath = At("dst");
    _destPathInfo.sharePath = _destPathInfo.mountUri = fakeMounts.back().info.base_uri;
  }
};

TEST_F(CopyHookTest, TheFirstKnownFileSystemTypeStays) {
  EXPECT_EQ(Copy("src/f", "dst/1"), 0);
  EXPECT_EQ(_destFsType, -1);
  EXPECT_EQ(_srcFsType, TAVOGetFSType(At("src/f").c_str(), 0));
  EXPECT_EQ(Copy("src/f", "dst/2", 5), 0);
  EXPECT_EQ(_destFsType, 5);
  EXPECT_EQ(Copy("src/f", "dst/3", 2), 0);
  EXPECT_EQ(_destFsType, 5);
  EXPECT_EQ(Read("dst/3"), "content");
}

TEST_F(CopyHookTest, AFileThatTheServerMakesItselfCountsAsCopied) {
  MountDestination("plain");
  cloudScript.ignoresPath = true;
  EXPECT_EQ(Copy("src/f", "dst/f"), 0);
  EXPECT_TRUE(fs::is_empty(At("dst")));
}

TEST_F(CopyHookTest, OneConnectionCannotReadAndWrite) {
  MountDestination("plain");
  AddMount("plain", "src", At("src")).info.max_connections = 1;
  _processingPath = "plain://src/f";
  _srcPathInfos.resize(1);
  _srcPathInfos[0].sharePath = "plain://src/";
  _srcPathInfos[0].realPath = At("src");
  cloudScript.serverId = "plain://src/";
  EXPECT_EQ(Copy("src/f", "dst/f"), -1);
  EXPECT_EQ(VLIBCErrGet(), 0xD900);
  EXPECT_EQ(core::LastErrorPlace().line, 1310);

  _copyOptions.moveFlag = 1;
  EXPECT_EQ(Copy("src/f", "dst/f"), 0);
  _copyOptions.moveFlag = 0;
  fakeMounts.back().info.max_connections = 2;
  EXPECT_EQ(Copy("src/f", "dst/g"), 0);

  _processingPath = "/local";
  EXPECT_EQ(Copy("src/f", "dst/h"), -1);
  EXPECT_EQ(VLIBCErrGet(), 0x8100);
  EXPECT_EQ(Logged(1303), 1);
}

TEST_F(CopyHookTest, ACloudMountIsAskedWhetherTheFileFits) {
  MountDestination("webdav");
  fakeMounts.back().enableCurl = false;
  EXPECT_EQ(Copy("src/none", "dst/f"), -1);
  EXPECT_EQ(VLIBCErrGet(), 0x0700);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(Logged(1320), 1);

  VLIBCErrSetEx(0, "test", 0);
  cloudScript.acceptsSize = false;
  EXPECT_EQ(Copy("src/f", "dst/f"), -1);
  EXPECT_EQ(VLIBCErrGet(), 0);
  EXPECT_TRUE(fs::is_empty(At("dst")));

  cloudScript.acceptsSize = true;
  EXPECT_EQ(Copy("src/f", "dst/f"), 0);
  EXPECT_EQ(Read("dst/f"), "content");
}

TEST_F(CopyHookTest, WithoutAConnectionTheCopyItselfWillTell) {
  MountDestination("webdav");
  fakeMounts.back().enableCurl = false;
  cloudScript.reachable = false;
  EXPECT_EQ(Copy("src/f", "dst/f"), 0);
  EXPECT_EQ(Read("dst/f"), "content");
}

TEST_F(CopyHookTest, APathIsWithinItselfAndItsFoldersOnly) {
  for (const char* path : {"/a/b", "/a/b/c"}) EXPECT_TRUE(MVCPIsWithinPath(path, "/a/b")) << path;
  for (const char* path : {"/a/bc", "/a", "/a/"}) EXPECT_FALSE(MVCPIsWithinPath(path, "/a/b"));
  EXPECT_FALSE(MVCPIsWithinPath("/a/b", "/a/b/"));
}

TEST_F(CopyHookTest, SizesComeFromTheCacheOrFromTheDisk) {
  Write("dst/tree/a", "12345");
  _dirSizeCache["/was/here"] = 99;
  EXPECT_EQ(MVCPGetDirSizeCallback("/was/here", At("dst/tree").c_str()), 99U);
  EXPECT_EQ(MVCPGetDirSizeCallback("/was", At("dst/tree").c_str()), 5U);
  EXPECT_EQ(MVCPGetDirSizeCallback(nullptr, At("dst/tree").c_str()), 0U);
  EXPECT_EQ(MVCPGetDirSizeCallback("/was/here", nullptr), 0U);
}

TEST_F(CopyHookTest, AReadOfUnknownSizeTakesTheLatestReportOnce) {
  _lastWriteTime = std::time(nullptr);
  MVCPUpdateProgress(4096, 0);
  EXPECT_EQ(MVCPTransferCallback(0), 4096);
  EXPECT_EQ(_lastChunkBytes, 0U);
  EXPECT_EQ(MVCPTransferCallback(0), 8388608);  // nothing reported: a whole chunk
  EXPECT_EQ(MVCPTransferCallback(1000), 1000);
  WfmlibBwEnd();
  EXPECT_EQ(MVCPTransferCallback(1000), -1);
}

int Stop() { return 1; }

TEST_F(CopyHookTest, ACopyThroughDescriptorsLeavesAWholeFileOrNone) {
  const std::string src = At("src/f");
  EXPECT_EQ(MVCPCopyFileFd(src.c_str(), At("dst/f").c_str(), 7, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(Read("dst/f"), "content");
  EXPECT_LT(MVCPCopyFileFd(src.c_str(), At("dst/f").c_str(), 7, nullptr, Stop, nullptr), 0);
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_FALSE(fs::exists(At("dst/f")));
}

TEST_F(CopyHookTest, AMissingSourceIsNoNewsButAMissingFolderIs) {
  const std::string none = At("src/none");
  EXPECT_EQ(MVCPCopyFileFd(none.c_str(), At("dst/f").c_str(), 7, nullptr, nullptr, nullptr), -1);
  EXPECT_TRUE(LogLines().empty());
  const std::string dst = At("none/f");
  EXPECT_EQ(MVCPCopyFileFd(At("src/f").c_str(), dst.c_str(), 7, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(Logged(943), 1);
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
