// The same expectations of every protocol of the FTP family, on real servers.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "core/error.h"
#include "core/unique_fd.h"
#include "transfer_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FtpFamilyTest : public TransferTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (!StartServer(GetParam())) GTEST_SKIP() << "no server for " << GetParam() << " can run here";
  }
};

INSTANTIATE_TEST_SUITE_P(Protocols, FtpFamilyTest, testing::Values("sftp", "ftp", "ftps"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(FtpFamilyTest, FilesOfAllSizesArriveWholeAndAreCountedOnce) {
  std::string err;
  ASSERT_TRUE(cloud_->Connect(&err)) << err;
  ExpectWholeFiles({0, 1, kBig});
  EXPECT_EQ(cloud_->GetErrorCode(), 0);
}

TEST_P(FtpFamilyTest, APrivateFileIsNobodyElsesOnSftp) {
  if (std::string(GetParam()) != "sftp")
    GTEST_SKIP() << "the protocol makes files with the server's permissions";
  ASSERT_TRUE(Upload("private", "x"));
  struct stat st {};
  ASSERT_EQ(stat(Path("private").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0077U, 0U);
}

TEST_P(FtpFamilyTest, NamesMeanWhatTheySay) {
  for (const char* name :
       {"#a", "100%", "%41", "what?", "a b", " before", "after ", "\"", "'", "a\\b",
        "\xC3\xBC\xE2\x86\x92", "~", ";type=a", "*[1]{2}", "-rf", "&", "@eaDir", "a:b", "..."}) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(Upload(name, name));
    EXPECT_EQ(ReadAll(Path(name)), name);
    EXPECT_THAT(Names(), ElementsAre(name));
    std::string copy;
    EXPECT_TRUE(Download(name, std::string(name).size(), &copy));
    EXPECT_EQ(copy, name);
    EXPECT_TRUE(cloud_->Remove(Path(name)));
    EXPECT_THAT(Names(), IsEmpty());
  }
  for (const std::string& name :
       {std::string("a\r\nDELE b"), std::string("a\nb"), std::string("a\0b", 3)}) {
    EXPECT_FALSE(Upload(name, "x"));
    EXPECT_EQ(VLIBCErrGet(), core::kErrIllegalName);
    EXPECT_FALSE(cloud_->Rename(Path("x"), Path(name)));
    EXPECT_FALSE(cloud_->Remove(Path(name)));
  }
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_P(FtpFamilyTest, AStopEndsTheTransferAndLeavesTheOldFile) {
  ExpectAStopToLeaveTheOldFile([this] { return Names(); });
}

TEST_P(FtpFamilyTest, ABrokenConnectionIsTakenUpWhereItStopped) {
  const std::string text = RandomText(kBig);
  bool broken = false;
  const auto break_at_half = [&] {
    watch.at_half = [&] {
      broken = true;
      server_.EndSessions();
    };
  };
  break_at_half();
  ASSERT_TRUE(Upload("file", text)) << std::hex << VLIBCErrGet();
  EXPECT_TRUE(broken);
  EXPECT_TRUE(ReadAll(Path("file")) == text);
  EXPECT_EQ(watch.counted, kBig) << "nothing is counted twice";
  EXPECT_THAT(Names(), ElementsAre("file"));

  broken = false;
  break_at_half();
  std::string copy;
  ASSERT_TRUE(Download("file", kBig, &copy)) << std::hex << VLIBCErrGet();
  EXPECT_TRUE(broken);
  EXPECT_TRUE(copy == text);
  EXPECT_EQ(watch.counted, kBig);
}

TEST_P(FtpFamilyTest, AnUploadRemovesWhatEndedProcessesLeft) {
  ExpectAnUploadToRemoveWhatOthersHaveLeft();
}

TEST_P(FtpFamilyTest, AServerThatIsGoneFailsTheTransferInTheEnd) {
  ExpectALostServerToLeaveTheOldFile();
}

TEST_P(FtpFamilyTest, ASourceThatChangedIsNotTakenForWhole) {
  ASSERT_TRUE(Upload("file", "12345"));
  std::string copy;
  EXPECT_FALSE(Download("file", 4, &copy));
  EXPECT_FALSE(Download("file", 6, &copy));
  EXPECT_EQ(VLIBCErrGet(), core::kErrInputOutput);
  EXPECT_FALSE(Download("missing", 6, &copy));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);

  const core::UniqueFd empty(open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  EXPECT_FALSE(TAVOCloud::Cloud::UploadFile(cloud_.get(), cloud_->GetServerID() + "file",
                                            empty.get(), 100, nullptr, nullptr, nullptr));
  EXPECT_EQ(VLIBCErrGet(), core::kErrInputOutput);
  EXPECT_EQ(ReadAll(Path("file")), "12345");
  EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_P(FtpFamilyTest, FoldersAndFilesAreToldApartMadeRenamedAndRemoved) {
  std::uint64_t size = 0;
  bool folder = false;
  ASSERT_TRUE(cloud_->MakeFolder(Path("dir")));
  EXPECT_FALSE(cloud_->MakeFolder(Path("dir")));
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
  EXPECT_EQ(cloud_->Kind(), 1);
}

TEST_P(FtpFamilyTest, ManyFilesTakeOneConnection) {
  ASSERT_TRUE(Upload("first", "1"));
  const auto sessions = server_.Sessions();
  EXPECT_THAT(sessions, testing::Not(IsEmpty()));
  std::string copy;
  for (const char* name : {"a", "b", "c"}) {
    ASSERT_TRUE(Upload(name, name));
    ASSERT_TRUE(Download(name, 1, &copy));
  }
  EXPECT_EQ(server_.Sessions(), sessions);
  server_.EndSessions();
  EXPECT_TRUE(Download("a", 1, &copy)) << "a kept connection that was closed is opened again";
}

}  // namespace
