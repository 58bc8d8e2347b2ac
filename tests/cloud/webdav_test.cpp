// WebDAV against a real Apache.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "core/error.h"
#include "core/unique_fd.h"
#include "transfer_fixture.h"

namespace {

using TAVOCloud::Cloud;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kNoApache = "no Apache with WebDAV can run here";

class WebDavTest : public TransferTest {
 protected:
  bool StartApache(std::vector<std::string> options = {}) {
    return StartServer("webdav", std::move(options));
  }
};

TEST_F(WebDavTest, EveryWayToLogInTakesOneConnection) {
  for (const std::vector<std::string>& way :
       {std::vector<std::string>{}, {"--digest"}, {"--tls"}}) {
    SCOPED_TRACE(way.empty() ? "basic" : way[0]);
    if (!StartApache(way)) GTEST_SKIP() << kNoApache;
    ExpectWholeFiles({0, 1, kBig});
    EXPECT_EQ(Requests(" 401 ", 1), 1) << "only the first request is sent without a login";
    server_.Close();
  }
}

TEST_F(WebDavTest, OnlyFilesAreReplacedAndOnlyWhereThatIsAsked) {
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  ASSERT_TRUE(Upload("file", "one"));
  ASSERT_TRUE(cloud_->CopyOnServer(Path("file"), Path("copy")));
  EXPECT_EQ(ReadFile(Path("copy")), "one");
  EXPECT_EQ(Requests(" T", 0), 0) << "there was nothing to replace";
  ASSERT_TRUE(Upload("file", "two!"));
  ASSERT_TRUE(cloud_->CopyOnServer(Path("file"), Path("copy")));
  EXPECT_EQ(ReadFile(Path("copy")), "two!");
  EXPECT_EQ(Requests(" T", 2), 2);

  ASSERT_TRUE(Upload("file", "three"));
  EXPECT_FALSE(cloud_->Rename(Path("file"), Path("copy")));
  EXPECT_EQ(VLIBCErrGet(), core::kErrExists);
  EXPECT_EQ(ReadFile(Path("copy")), "two!");

  ASSERT_TRUE(cloud_->MakeFolder(Path("dir")));
  EXPECT_FALSE(cloud_->MakeFolder(Path("dir")));
  EXPECT_EQ(VLIBCErrGet(), core::kErrExists);
  ASSERT_TRUE(Upload("dir/inside", "kept"));
  EXPECT_FALSE(Upload("dir", "x"));
  EXPECT_EQ(VLIBCErrGet(), core::kErrFileExpected);
  EXPECT_FALSE(cloud_->CopyOnServer(Path("file"), Path("dir")));
  EXPECT_EQ(VLIBCErrGet(), core::kErrFileExpected);
  EXPECT_FALSE(cloud_->Remove(Path("dir"))) << "it is not empty";
  EXPECT_EQ(VLIBCErrGet(), core::kErrExists);
  EXPECT_EQ(ReadFile(Path("dir/inside")), "kept");
  EXPECT_THAT(Names(), ElementsAre("copy", "dir", "file")) << "no temporary file stays";
}

TEST_F(WebDavTest, FoldersAreCopiedOnTheServer) {
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  std::uint64_t size = 0;
  bool folder = false;
  ASSERT_TRUE(cloud_->MakeFolder(Path("dir")));
  for (const char* missing : {"none/dir", "none/file"}) {
    EXPECT_FALSE(cloud_->MakeFolder(Path(missing)) || Upload(missing, "x"));
    EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
  }
  ASSERT_TRUE(Upload("dir/file", "12345"));
  EXPECT_TRUE(cloud_->Stat(Path("dir/"), &size, &folder) && folder);
  ASSERT_TRUE(cloud_->CopyOnServer(Path("dir"), Path("dir2")));
  EXPECT_EQ(ReadFile(Path("dir2/file")), "12345");
  EXPECT_TRUE(cloud_->Remove(Path("dir2/file")) && cloud_->Remove(Path("dir2")));
  EXPECT_THAT(Names(), ElementsAre("dir"));
}

TEST_F(WebDavTest, AFileThatChangesIsNeverTakenForWhole) {
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  ASSERT_TRUE(Upload("file", RandomText(kLarger)));
  watch.at_half = [&] {
    // Written in its place it could come with the first answer, which nobody can tell.
    WriteFile(Path("next"), std::string(kLarger, 'x'));
    std::filesystem::rename(Path("next"), Path("file"));
    server_.EndSessions();
  };
  std::string copy;
  EXPECT_FALSE(Download("file", kLarger, &copy));
  EXPECT_EQ(VLIBCErrGet(), core::kErrInputOutput);
  EXPECT_EQ(copy.find("xxxxxxxxxxxxxxxx"), std::string::npos) << "no two files are mixed";
}

TEST_F(WebDavTest, WhatTheServerRefusesIsToldByItsReason) {
  const std::string root = data_;
  std::vector<std::string> options;
  struct Case {
    int status;
    int core;
    int attempts;
  };
  const std::vector<Case> cases = {
      {403, core::kErrNotPermitted, 1}, {404, core::kErrNotFound, 1},
      {413, core::kErrTooLarge, 1},     {423, core::kErrNotPermitted, 1},
      {500, core::kErrInputOutput, 4},  {501, core::kErrSeeErrno, 1},
      {503, core::kErrHostDown, 4},     {507, core::kErrNoSpace, 1},
  };
  for (const Case& one : cases) {
    const std::string status = std::to_string(one.status);
    options.insert(options.end(),
                   {"--option", "Redirect " + status + (" " + root) + ("/" + status)});
  }
  if (!StartApache(options)) GTEST_SKIP() << kNoApache;
  ASSERT_TRUE(cloud_->Connect(nullptr));
  for (const Case& one : cases) {
    const std::string name = std::to_string(one.status);
    std::string copy;
    EXPECT_FALSE(Download(name, 1, &copy)) << name;
    EXPECT_EQ(VLIBCErrGet(), one.core) << name;
    EXPECT_EQ(cloud_->GetErrorCode(), one.status == 503 ? kNoMoreConnections : one.status);
    EXPECT_EQ(copy, "") << "no page of the server is taken for the file";
    EXPECT_EQ(Requests("GET " + root + ("/" + name), one.attempts), one.attempts);
  }
}

TEST_F(WebDavTest, AServerThatOpensAConnectionAndServesNothingIsErrorForty) {
  if (!StartApache({"--option", "Redirect 503 /"})) GTEST_SKIP() << kNoApache;
  EXPECT_FALSE(Upload("file", "x"));
  EXPECT_EQ(cloud_->GetErrorCode(), kNoMoreConnections);
  EXPECT_EQ(VLIBCErrGet(), core::kErrHostDown);
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(WebDavTest, OnlyPlacesOnTheSameServerAreFollowed) {
  const std::string root = data_;
  if (!StartApache({"--option", "Redirect 307 " + root + "/here/ " + root + "/there/", "--option",
                    "Redirect 307 " + root + "/away/ http://127.0.0.2:1/there/", "--option",
                    "Redirect 307 " + root + "/circle " + root + "/circle"}))
    GTEST_SKIP() << kNoApache;
  ASSERT_TRUE(cloud_->MakeFolder(Path("there")));
  const std::string text = RandomText(kBig);
  std::uint64_t size = 0;
  bool folder = false;
  EXPECT_TRUE(cloud_->Stat(Path("here/"), &size, &folder));
  EXPECT_TRUE(folder);
  ASSERT_TRUE(Upload("there/file", text));
  std::string copy;
  EXPECT_TRUE(Download("here/file", kBig, &copy));
  EXPECT_TRUE(copy == text);
  EXPECT_FALSE(Download("away/file", kBig, &copy));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotPermitted);
  EXPECT_FALSE(Download("circle", kBig, &copy));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotPermitted);
}

TEST_F(WebDavTest, AStopIsHeardWhileTheServerIsSilent) {
  const core::UniqueFd silent(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* any = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(bind(silent.get(), any, length), 0);
  ASSERT_EQ(listen(silent.get(), 5), 0);
  ASSERT_EQ(getsockname(silent.get(), any, &length), 0);
  core::RemoteConfig remote;
  remote.name = "server";
  remote.protocol = "webdav";
  remote.host = "127.0.0.1";
  remote.port = ntohs(address.sin_port);
  Use(remote);
  const core::UniqueFd fd(open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  static std::chrono::steady_clock::time_point begin;
  begin = std::chrono::steady_clock::now();
  const auto stop_soon = [] {
    return std::chrono::steady_clock::now() - begin > std::chrono::seconds(1) ? 1 : 0;
  };
  EXPECT_FALSE(Cloud::DownloadFile(cloud_.get(), cloud_->GetServerID() + "file", fd.get(), 100,
                                   nullptr, stop_soon, nullptr));
  EXPECT_EQ(errno, ECANCELED);
  begin = std::chrono::steady_clock::now();
  cloud_->StopWhen(stop_soon);
  EXPECT_FALSE(cloud_->CopyOnServer(Path("file"), Path("copy")));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30))
      << "not by the library's own patience";
}

TEST_F(WebDavTest, AFullDiskOfTheServerIsToldAndLeavesTheOldFile) {
  if (mount("tmpfs", data_.c_str(), "tmpfs", 0, "size=4m") != 0) {
    GTEST_SKIP() << "only root can make a small volume";
  }
  const std::shared_ptr<void> unmount(nullptr, [this](void*) {
    server_.Stop();
    umount2(data_.c_str(), MNT_DETACH);
  });
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  ASSERT_TRUE(Upload("file", "old"));
  EXPECT_FALSE(Upload("file", RandomText(kBig)));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNoSpace);
  EXPECT_EQ(ReadFile(Path("file")), "old");
  EXPECT_THAT(Names(), ElementsAre("file"));
}

}  // namespace
