// WebDAV against a real Apache.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <thread>

#include "core/error.h"
#include "core/unique_fd.h"
#include "transfer_fixture.h"

namespace {

using TAVOCloud::Cloud;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr std::size_t kLarger = 3 * kBig;  // more than connections hold by themselves
constexpr int kNoMoreConnections = 40;
constexpr const char* kNoApache = "no Apache with WebDAV can run here";

class WebDavTest : public TransferTest {
 protected:
  // False when there is no such server here.
  bool StartApache(std::vector<std::string> options = {}) {
    options.insert(options.end(), {"--root", data_});
    if (!server_.Start("webdav.py", options)) return false;
    Use(server_.remote());
    return true;
  }
  // Requests that the server has logged, by the words of their lines. It logs them a
  // moment after it has answered them, so `expected` many are waited for.
  int Requests(const std::string& words, int expected) const {
    int count = 0;
    for (int round = 0; round < 500; ++round) {
      count = 0;
      std::istringstream log(ReadAll(server_.own() / "access.log"));
      for (std::string line; std::getline(log, line);) {
        count += line.find(words) != std::string::npos ? 1 : 0;
      }
      if (count >= expected) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return count;
  }
  // Names in the served folder without what the server itself may leave when killed.
  std::vector<std::string> OurNames() const {
    std::vector<std::string> names = Names();
    std::erase_if(names, [](const std::string& name) { return name.starts_with(".davfs.tmp"); });
    return names;
  }
};

class WebDavLoginTest : public WebDavTest, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Ways, WebDavLoginTest, testing::Values("", "--digest", "--tls"),
                         [](const auto& info) {
                           const std::string way = info.param;
                           return way.empty() ? std::string("basic") : way.substr(2);
                         });

TEST_P(WebDavLoginTest, FilesOfAllSizesArriveWholeOverOneConnection) {
  const std::string way = GetParam();
  if (!StartApache(way.empty() ? std::vector<std::string>{} : std::vector{way})) {
    GTEST_SKIP() << kNoApache;
  }
  std::string err;
  ASSERT_TRUE(cloud_->Connect(&err)) << err;
  std::vector<std::size_t> sizes = {0, 1, kBig};
  if (way.empty()) sizes.insert(sizes.end(), {kBig - 1, kLarger});
  ExpectWholeFiles(sizes);
  EXPECT_EQ(cloud_->GetErrorCode(), 0);
  EXPECT_EQ(Requests(" 401 ", 1), 1) << "only the first request is sent without a login";
}

TEST_F(WebDavTest, NamesMeanWhatTheySay) {
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  for (const char* name : {"#a",      "100%", "%41",     "what?",   "a b", " before",
                           "after ",  "\"",   "'",       "a\\b",    "<&>", "\xC3\xBC\xE2\x86\x92",
                           "caf\xE9", "~",    ";type=a", "*[1]{2}", "-rf", "@eaDir",
                           "a:b",     "..."}) {
    SCOPED_TRACE(name);
    const std::string copied = std::string(name) + "2";
    std::uint64_t size = 0;
    bool folder = true;
    ASSERT_TRUE(Upload(name, name));
    EXPECT_EQ(ReadAll(Path(name)), name);
    EXPECT_TRUE(cloud_->Stat(Path(name), &size, &folder));
    EXPECT_EQ(size, std::string(name).size());
    std::string copy;
    EXPECT_TRUE(Download(name, size, &copy));
    EXPECT_EQ(copy, name);
    EXPECT_TRUE(cloud_->CopyOnServer(Path(name), Path(copied)));
    EXPECT_THAT(Names(), UnorderedElementsAre(name, copied));
    EXPECT_TRUE(cloud_->Remove(Path(name)));
    EXPECT_TRUE(cloud_->Rename(Path(copied), Path(name)));
    EXPECT_TRUE(cloud_->Remove(Path(name)));
    EXPECT_THAT(Names(), IsEmpty());
  }
  for (const std::string& name :
       {std::string("a\r\nOverwrite: T"), std::string("a\nb"), std::string("a\0b", 3)}) {
    EXPECT_FALSE(Upload(name, "x"));
    EXPECT_EQ(VLIBCErrGet(), core::kErrIllegalName);
    EXPECT_FALSE(cloud_->Rename(Path("x"), Path(name)));
    EXPECT_FALSE(cloud_->CopyOnServer(Path("x"), Path(name)));
    EXPECT_FALSE(cloud_->Remove(Path(name)));
  }
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(WebDavTest, OnlyFilesAreReplacedAndOnlyWhereThatIsAsked) {
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  ASSERT_TRUE(Upload("file", "one"));
  ASSERT_TRUE(cloud_->CopyOnServer(Path("file"), Path("copy")));
  EXPECT_EQ(ReadAll(Path("copy")), "one");
  EXPECT_EQ(Requests(" T", 0), 0) << "there was nothing to replace";
  ASSERT_TRUE(Upload("file", "two!"));
  ASSERT_TRUE(cloud_->CopyOnServer(Path("file"), Path("copy")));
  EXPECT_EQ(ReadAll(Path("copy")), "two!");
  EXPECT_EQ(Requests(" T", 2), 2);

  ASSERT_TRUE(Upload("file", "three"));
  EXPECT_FALSE(cloud_->Rename(Path("file"), Path("copy")));
  EXPECT_EQ(VLIBCErrGet(), core::kErrExists);
  EXPECT_EQ(ReadAll(Path("copy")), "two!");

  ASSERT_TRUE(cloud_->MakeFolder(Path("dir")));
  ASSERT_TRUE(Upload("dir/inside", "kept"));
  EXPECT_FALSE(Upload("dir", "x"));
  EXPECT_EQ(VLIBCErrGet(), core::kErrFileExpected);
  EXPECT_FALSE(cloud_->CopyOnServer(Path("file"), Path("dir")));
  EXPECT_EQ(VLIBCErrGet(), core::kErrFileExpected);
  EXPECT_FALSE(cloud_->Remove(Path("dir"))) << "it is not empty";
  EXPECT_EQ(VLIBCErrGet(), core::kErrExists);
  EXPECT_EQ(ReadAll(Path("dir/inside")), "kept");
  EXPECT_THAT(Names(), ElementsAre("copy", "dir", "file")) << "no temporary file stays";
}

TEST_F(WebDavTest, FoldersAndFilesAreToldApartMadeCopiedAndRemoved) {
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  std::uint64_t size = 0;
  bool folder = false;
  ASSERT_TRUE(cloud_->MakeFolder(Path("dir")));
  EXPECT_FALSE(cloud_->MakeFolder(Path("dir")));
  EXPECT_EQ(VLIBCErrGet(), core::kErrExists);
  EXPECT_FALSE(cloud_->MakeFolder(Path("none/dir")));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
  EXPECT_FALSE(Upload("none/file", "x"));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
  ASSERT_TRUE(Upload("dir/file", "12345"));
  ASSERT_TRUE(cloud_->Stat(Path("dir/file"), &size, &folder));
  EXPECT_EQ(size, 5U);
  EXPECT_FALSE(folder);
  ASSERT_TRUE(cloud_->Stat(Path("dir/"), &size, &folder));
  EXPECT_TRUE(folder);
  EXPECT_FALSE(cloud_->Stat(Path("none"), &size, &folder));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
  ASSERT_TRUE(cloud_->CopyOnServer(Path("dir"), Path("dir2")));
  EXPECT_EQ(ReadAll(Path("dir2/file")), "12345");
  ASSERT_TRUE(cloud_->Remove(Path("dir2/file")));
  ASSERT_TRUE(cloud_->Remove(Path("dir2")));
  EXPECT_FALSE(cloud_->Remove(Path("dir2")));
  EXPECT_THAT(Names(), ElementsAre("dir"));
  EXPECT_EQ(cloud_->Kind(), 2);
}

TEST_F(WebDavTest, AStopEndsTheTransferAndLeavesTheOldFile) {
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  ExpectAStopToLeaveTheOldFile([this] { return OurNames(); });
}

TEST_F(WebDavTest, ABrokenConnectionIsTakenUpWhereItStopped) {
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  const std::string text = RandomText(kLarger);
  const auto break_at_half = [&] { watch.at_half = [&] { server_.EndSessions(); }; };
  break_at_half();
  ASSERT_TRUE(Upload("file", text)) << std::hex << VLIBCErrGet();
  EXPECT_FALSE(watch.at_half) << "it was broken";
  EXPECT_TRUE(ReadAll(Path("file")) == text);
  EXPECT_EQ(watch.counted, kLarger) << "nothing is counted twice";
  EXPECT_THAT(OurNames(), ElementsAre("file"));

  std::string copy;
  break_at_half();
  ASSERT_TRUE(Download("file", kLarger, &copy)) << std::hex << VLIBCErrGet();
  EXPECT_FALSE(watch.at_half) << "it was broken";
  EXPECT_TRUE(copy == text);
  EXPECT_EQ(watch.counted, kLarger);
  EXPECT_EQ(Requests(" 206 ", 1), 1) << "only the rest is sent again";
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

  ASSERT_TRUE(Upload("file", "12345"));
  for (const std::uint64_t size : {4U, 6U}) {
    EXPECT_FALSE(Download("file", size, &copy));
    EXPECT_EQ(VLIBCErrGet(), core::kErrInputOutput);
  }
  const core::UniqueFd empty(open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  EXPECT_FALSE(Cloud::UploadFile(cloud_.get(), cloud_->GetServerID() + "file", empty.get(), 100,
                                 nullptr, nullptr, nullptr));
  EXPECT_EQ(VLIBCErrGet(), core::kErrInputOutput);
  EXPECT_EQ(ReadAll(Path("file")), "12345");
  EXPECT_THAT(OurNames(), ElementsAre("file"));
}

TEST_F(WebDavTest, AnUploadRemovesWhatEndedProcessesLeft) {
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  ExpectAnUploadToRemoveWhatOthersHaveLeft();
}

TEST_F(WebDavTest, AServerThatDiesLeavesTheOldFileAndIsToldFromOthers) {
  if (!StartApache()) GTEST_SKIP() << kNoApache;
  core::RemoteConfig remote = server_.remote();
  remote.connect_timeout = 4;
  Use(remote);
  ExpectALostServerToLeaveTheOldFile();
}

TEST_F(WebDavTest, NobodyIsLetInByMistake) {
  if (!StartApache({"--tls"})) GTEST_SKIP() << kNoApache;
  core::RemoteConfig remote = server_.remote();
  remote.password_file = folder_ / "wrong";
  WriteFile(remote.password_file, "let me in\n");
  EXPECT_THAT(Refused(remote), HasSubstr("the password"));
  remote.password_file = folder_ / "missing";
  EXPECT_THAT(Refused(remote), HasSubstr("missing"));
  EXPECT_EQ(Requests(" 207 ", 0), 0);
  remote = server_.remote();
  remote.ca_file = "";
  EXPECT_THAT(Refused(remote), HasSubstr("certificate"));
  remote = server_.remote();
  remote.host = "localhost";
  Refused(remote);
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
  EXPECT_EQ(ReadAll(Path("file")), "old");
  EXPECT_THAT(OurNames(), ElementsAre("file"));
}

}  // namespace
