// The same expectations of every protocol with a server of its own, on real servers.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "core/error.h"
#include "core/unique_fd.h"
#include "leftovers.h"
#include "transfer_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EveryServerTest : public TransferTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (!StartServer(GetParam())) GTEST_SKIP() << "no server for " << GetParam() << " can run here";
  }
  bool IsWebDav() const { return cloud_->Kind() == 2; }
};

INSTANTIATE_TEST_SUITE_P(Protocols, EveryServerTest,
                         testing::Values("sftp", "ftp", "ftps", "webdav"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(EveryServerTest, FilesOfAllSizesArriveWholeAndAreCountedOnce) {
  std::string err;
  ASSERT_TRUE(cloud_->Connect(&err)) << err;
  ExpectWholeFiles({0, 1, kBig - 1, kBig});
  EXPECT_EQ(cloud_->GetErrorCode(), 0);
}

TEST_P(EveryServerTest, NamesMeanWhatTheySay) {
  for (const std::string name :
       {"#a",      "100%", "%41",     "what?",   "a b", " before",
        "after ",  "\"",   "'",       "a\\b",    "<&>", "\xC3\xBC\xE2\x86\x92",
        "caf\xE9", "~",    ";type=a", "*[1]{2}", "-rf", "@eaDir",
        "a:b",     "..."}) {
    SCOPED_TRACE(name);
    std::uint64_t size = 0;
    bool folder = true;
    ASSERT_TRUE(Upload(name, name));
    EXPECT_EQ(ReadFile(Path(name)), name);
    EXPECT_TRUE(cloud_->Stat(Path(name), &size, &folder));
    EXPECT_EQ(size, name.size());
    std::string copy;
    EXPECT_TRUE(Download(name, size, &copy));
    EXPECT_EQ(copy, name);
    if (IsWebDav()) {
      EXPECT_TRUE(cloud_->CopyOnServer(Path(name), Path(name + "2")));
      EXPECT_THAT(Names(), testing::UnorderedElementsAre(name, name + "2"));
      EXPECT_TRUE(cloud_->Remove(Path(name)));
    } else {
      EXPECT_TRUE(cloud_->Rename(Path(name), Path(name + "2")));
    }
    EXPECT_THAT(Names(), ElementsAre(name + "2"));
    EXPECT_TRUE(cloud_->Rename(Path(name + "2"), Path(name)));
    EXPECT_TRUE(cloud_->Remove(Path(name)));
    EXPECT_THAT(Names(), IsEmpty());
  }
  for (const std::string& name : {std::string("a\r\nDELE b"), std::string("a\r\nOverwrite: T"),
                                  std::string("a\nb"), std::string("a\0b", 3)}) {
    EXPECT_FALSE(Upload(name, "x"));
    EXPECT_EQ(VLIBCErrGet(), core::kErrIllegalName);
    EXPECT_FALSE(cloud_->Rename(Path("x"), Path(name)));
    EXPECT_FALSE(cloud_->CopyOnServer(Path("x"), Path(name)));
    EXPECT_FALSE(cloud_->Remove(Path(name)));
  }
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_P(EveryServerTest, AStopEndsTheTransferAndLeavesTheOldFile) {
  ASSERT_TRUE(Upload("file", "old"));
  const auto stop_at_half = [] { watch.at_half = [] { watch.stop = true; }; };
  stop_at_half();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(Upload("file", RandomText(kBig)));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_LT(watch.counted, kBig);
  EXPECT_THAT(Names(), ElementsAre("file")) << "no temporary file stays";
  EXPECT_EQ(ReadFile(Path("file")), "old");

  watch.stop = false;
  ASSERT_TRUE(Upload("file", RandomText(kBig)));
  stop_at_half();
  std::string copy;
  EXPECT_FALSE(Download("file", kBig, &copy));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_LT(copy.size(), kBig);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

TEST_P(EveryServerTest, ABrokenConnectionIsTakenUpWhereItStopped) {
  const std::string text = RandomText(kLarger);
  const auto break_at_half = [&] { watch.at_half = [&] { server_.EndSessions(); }; };
  break_at_half();
  ASSERT_TRUE(Upload("file", text)) << std::hex << VLIBCErrGet();
  EXPECT_FALSE(watch.at_half) << "it was broken";
  EXPECT_TRUE(ReadFile(Path("file")) == text);
  EXPECT_EQ(watch.counted, kLarger) << "nothing is counted twice";
  EXPECT_THAT(Names(), ElementsAre("file"));

  std::string copy;
  break_at_half();
  ASSERT_TRUE(Download("file", kLarger, &copy)) << std::hex << VLIBCErrGet();
  EXPECT_FALSE(watch.at_half) << "it was broken";
  EXPECT_TRUE(copy == text);
  EXPECT_EQ(watch.counted, kLarger);
  if (IsWebDav()) {
    EXPECT_EQ(Requests(" 206 ", 1), 1) << "only the rest is sent again";
  }
}

TEST_P(EveryServerTest, AnUploadRemovesWhatEndedProcessesLeft) {
  const std::string living = TAVOCloud::UploadPathBeside(Path("file"));
  const std::string aside = TAVOCloud::AsidePathBeside(Path("file"));
  const std::string gone = AbandonedUploadBeside(Path("file"));
  for (const std::string& path : {living, aside, gone}) WriteFile(path, "x");
  ASSERT_TRUE(Upload("file", "text")) << std::hex << VLIBCErrGet();
  EXPECT_FALSE(std::filesystem::exists(gone));
  EXPECT_TRUE(std::filesystem::exists(living));
  EXPECT_TRUE(std::filesystem::exists(aside)) << "it may be the only copy";
  EXPECT_EQ(ReadFile(Path("file")), "text");
}

TEST_P(EveryServerTest, AServerThatDiesLeavesTheOldFileAndIsToldFromOthers) {
  ASSERT_TRUE(Upload("file", "old"));
  watch.at_half = [this] { server_.Stop(); };
  EXPECT_FALSE(Upload("file", RandomText(kBig)));
  EXPECT_EQ(VLIBCErrGet(), core::kErrHostDown);
  EXPECT_EQ(ReadFile(Path("file")), "old") << "a target is whole or untouched";
  std::string copy;
  EXPECT_FALSE(Download("file", 3, &copy));
  EXPECT_EQ(VLIBCErrGet(), core::kErrHostDown);
  EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_P(EveryServerTest, ASourceThatChangedIsNotTakenForWhole) {
  ASSERT_TRUE(Upload("file", "12345"));
  std::string copy;
  for (const std::uint64_t size : {4U, 6U}) {
    EXPECT_FALSE(Download("file", size, &copy));
    EXPECT_EQ(VLIBCErrGet(), core::kErrInputOutput) << size;
  }
  EXPECT_FALSE(Download("missing", 6, &copy));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
  const core::UniqueFd empty(open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  EXPECT_FALSE(TAVOCloud::Cloud::UploadFile(cloud_.get(), cloud_->GetServerID() + "file",
                                            empty.get(), 100, nullptr, nullptr, nullptr));
  EXPECT_EQ(VLIBCErrGet(), core::kErrInputOutput);
  EXPECT_EQ(ReadFile(Path("file")), "12345");
  EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_P(EveryServerTest, FoldersAndFilesAreToldApartMadeRenamedAndRemoved) {
  std::uint64_t size = 0;
  bool folder = false;
  ASSERT_TRUE(cloud_->MakeFolder(Path("dir")));
  EXPECT_FALSE(cloud_->MakeFolder(Path("dir")));
  EXPECT_FALSE(cloud_->MakeFolder(Path("none/dir")));
  EXPECT_FALSE(Upload("none/file", "x"));
  ASSERT_TRUE(Upload("dir/file", "12345"));
  ASSERT_TRUE(cloud_->Stat(Path("dir/file"), &size, &folder));
  EXPECT_EQ(size, 5U);
  EXPECT_FALSE(folder);
  ASSERT_TRUE(cloud_->Stat(Path("dir"), &size, &folder));
  EXPECT_TRUE(folder);
  EXPECT_FALSE(cloud_->Stat(Path("none"), &size, &folder));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);

  EXPECT_FALSE(Upload("dir", "x")) << "a folder is not replaced by a file";
  EXPECT_THAT(Names(), ElementsAre("dir"));
  EXPECT_FALSE(cloud_->Remove(Path("dir"))) << "it is not empty";
  ASSERT_TRUE(cloud_->Rename(Path("dir/file"), Path("file")));
  ASSERT_TRUE(cloud_->Remove(Path("dir")));
  ASSERT_TRUE(cloud_->Remove(Path("file")));
  EXPECT_FALSE(cloud_->Remove(Path("file")));
  EXPECT_FALSE(cloud_->CopyOnServer(Path("a"), Path("b")));
  EXPECT_EQ(cloud_->Kind(), GetParam() == std::string("webdav") ? 2 : 1);
}

TEST_P(EveryServerTest, ManyFilesTakeOneConnectionAndKeepAPrivateOnePrivate) {
  ASSERT_TRUE(Upload("first", "1"));
  const auto sessions = server_.Sessions();
  EXPECT_THAT(sessions, testing::Not(IsEmpty()));
  std::string copy;
  for (const char* name : {"a", "b", "c"}) {
    ASSERT_TRUE(Upload(name, name));
    ASSERT_TRUE(Download(name, 1, &copy));
  }
  if (!IsWebDav()) {
    EXPECT_EQ(server_.Sessions(), sessions);
  }
  if (GetParam() == std::string("sftp")) {  // others have the server's permissions
    EXPECT_EQ(std::filesystem::status(Path("a")).permissions(), std::filesystem::perms(0600));
  }
  server_.EndSessions();
  EXPECT_TRUE(Download("a", 1, &copy)) << "a kept connection that was closed is opened again";
}

}  // namespace
