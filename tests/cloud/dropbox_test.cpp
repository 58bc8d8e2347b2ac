// Dropbox against a stand-in for the service.
#include "dropbox.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <sstream>

#include "core/error.h"
#include "core/unique_fd.h"
#include "server_program.h"
#include "transfer_fixture.h"

namespace {

using TAVOCloud::Cloud;
using TAVOCloud::DropboxCloud;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

constexpr std::size_t kPart = 1U << 20U;  // small, so that a session needs little data
constexpr std::size_t kInParts = 3 * kPart + 5;

class DropboxTest : public TransferTest {
 protected:
  void SetUp() override { Start({}); }

  void Start(const std::vector<std::string>& options) {
    box_ = std::make_unique<ServerProgram>();
    std::vector<std::string> all = {"--root", data_, "--account", Second()};
    std::filesystem::create_directory(Second());
    all.insert(all.end(), options.begin(), options.end());
    ASSERT_TRUE(box_->Start("dropbox.py", all));
    Open(box_->remote());
  }
  std::string Second() const { return folder_ / "second"; }

  // Makes it the configuration's one remote and opens it.
  void Open(core::RemoteConfig remote) { cloud_ = OpenBeside(std::move(remote), {}); }
  std::unique_ptr<Cloud> OpenBeside(core::RemoteConfig remote, core::Config config) {
    remote.path = "/";
    remote.connect_timeout = 2;  // the pauses between attempts follow it
    remote.mount = folder_;
    config.remotes.push_back(remote);
    core::SetConfig(config);
    return std::make_unique<DropboxCloud>(remote, "dropbox://" + remote.name + "/", kPart);
  }
  std::unique_ptr<Cloud> OpenSecond() {
    core::RemoteConfig remote = box_->remote();
    remote.name = "second";
    remote.token_file = box_->own() / "token1.json";
    return OpenBeside(remote, core::CurrentConfig());
  }

  // See the stand-in for what may go wrong. Without braces.
  void Order(const std::string& endpoint, const std::string& fault) const {
    WriteFile(box_->own() / "faults.new", R"([{"endpoint": ")" + endpoint + "\", " + fault + "}]");
    std::filesystem::rename(box_->own() / "faults.new", box_->own() / "faults.json");
  }
  std::string Log() const { return ReadFile(box_->own() / "access.log"); }
  int Requests(const std::string& words) const {
    std::istringstream log(Log());
    int count = 0;
    for (std::string line; std::getline(log, line);) {
      count += line.find(words) != std::string::npos ? 1 : 0;
    }
    return count;
  }
  void ForgetRequests() const { WriteFile(box_->own() / "access.log", ""); }

  std::unique_ptr<ServerProgram> box_;
};

TEST_F(DropboxTest, FilesOfAllSizesArriveWhole) {
  std::string err;
  ASSERT_TRUE(cloud_->Connect(&err)) << err;
  ExpectWholeFiles({0, 1, kPart, kPart + 1, 2 * kPart, 10485759, 10485760});
  EXPECT_EQ(cloud_->GetErrorCode(), 0);
  EXPECT_EQ(cloud_->Kind(), 3);
  EXPECT_EQ(Requests("files/upload 200"), 3) << "each at once";
  EXPECT_EQ(Requests("oauth2/token"), 1);
  EXPECT_FALSE(cloud_->IsAcceptedSize(1ULL << 40U));
  EXPECT_EQ(VLIBCErrGet(), core::kErrTooLarge);
}

TEST_F(DropboxTest, NamesMeanWhatTheySay) {
  for (const char* name : {"#a", "100%", "%41", "what?", "a b", " before", "\"", "'", "a\\b", "<&>",
                           "\xC3\xBC\xE2\x86\x92", "\xF0\x9F\x98\x80", "\x7F", "\t", "~", "..."}) {
    SCOPED_TRACE(name);
    const std::string place = "/" + std::string(name);
    std::uint64_t size = 0;
    bool folder = true;
    ASSERT_TRUE(Upload(name, name)) << std::hex << VLIBCErrGet();
    EXPECT_EQ(ReadFile(Path(name)), name);
    EXPECT_TRUE(cloud_->Stat(place, &size, &folder));
    EXPECT_EQ(size, std::string(name).size());
    std::string copy;
    EXPECT_TRUE(Download(name, size, &copy));
    EXPECT_EQ(copy, name);
    EXPECT_TRUE(cloud_->CopyOnServer(place, place + "2"));
    EXPECT_THAT(Names(), UnorderedElementsAre(name, std::string(name) + "2"));
    EXPECT_TRUE(cloud_->Remove(place));
    EXPECT_TRUE(cloud_->Rename(place + "2", place));
    EXPECT_TRUE(cloud_->Remove(place));
    EXPECT_THAT(Names(), IsEmpty());
  }
  for (const std::string& name :
       {std::string("a\r\nb"), std::string("a\0b", 3), std::string("caf\xE9"),
        std::string("desktop.ini"), std::string("a/../b")}) {
    EXPECT_FALSE(Upload(name, "x")) << name;
    EXPECT_EQ(VLIBCErrGet(), core::kErrIllegalName) << name;
  }
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(DropboxTest, TakenNamesAreReplacedOrRefused) {
  std::uint64_t size = 0;
  bool folder = false;
  ASSERT_TRUE(cloud_->MakeFolder("/Dir"));
  ASSERT_TRUE(Upload("Dir/inside", "kept"));
  ASSERT_TRUE(Upload("one", "1"));
  ASSERT_TRUE(Upload("two", "old"));
  WriteFile(AbandonedUploadBeside(Path("two")), "");
  const auto refused = [](bool done, int core) { return !done && VLIBCErrGet() == core; };
  EXPECT_TRUE(refused(cloud_->MakeFolder("/dir"), core::kErrExists)) << "whatever the case";
  EXPECT_TRUE(refused(cloud_->MakeFolder("/one"), core::kErrExists));
  EXPECT_TRUE(refused(Upload("dir", "x"), core::kErrFileExpected));
  EXPECT_TRUE(refused(Upload("dir", std::string(kInParts, 'x')), core::kErrFileExpected));
  EXPECT_TRUE(refused(Upload("dir/", "x"), core::kErrFileExpected));
  EXPECT_TRUE(refused(Upload("one/file", "x"), core::kErrFolderExpected));
  EXPECT_TRUE(refused(cloud_->Rename("/one", "/two"), core::kErrExists));
  EXPECT_TRUE(refused(cloud_->Rename("/one", "/dir"), core::kErrExists));
  EXPECT_TRUE(refused(cloud_->Rename("/none", "/x"), core::kErrNotFound));
  EXPECT_TRUE(refused(cloud_->CopyOnServer("/one", "/dir"), core::kErrFileExpected));
  EXPECT_TRUE(refused(cloud_->CopyOnServer("/dir", "/two"), core::kErrFolderExpected));
  EXPECT_TRUE(refused(cloud_->Remove("/dir"), core::kErrExists)) << "it is not empty";
  EXPECT_TRUE(refused(cloud_->Remove("/"), core::kErrNotPermitted));
  EXPECT_TRUE(refused(cloud_->Remove("/none"), core::kErrNotFound));
  EXPECT_TRUE(refused(cloud_->Stat("/none", &size, &folder), core::kErrNotFound));
  EXPECT_TRUE(refused(cloud_->Stat("/one/", &size, &folder), core::kErrFolderExpected));
  EXPECT_EQ(ReadFile(Path("two")), "old");

  cloud_->StopWhen([] { return 1; });
  EXPECT_FALSE(cloud_->CopyOnServer("/one", "/two"));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_EQ(ReadFile(Path("two")), "old");
  cloud_->StopWhen(nullptr);
  ASSERT_TRUE(cloud_->CopyOnServer("/one", "/two")) << std::hex << VLIBCErrGet();
  EXPECT_EQ(ReadFile(Path("two")), "1");
  ASSERT_TRUE(cloud_->Rename("/one", "/ONE")) << std::hex << VLIBCErrGet();
  EXPECT_THAT(Names(), ElementsAre("Dir", "ONE", "two")) << "no temporary file stays";
  ASSERT_TRUE(Upload("TWO", "new"));
  EXPECT_EQ(ReadFile(Path("two")), "new");
  for (const char* path : {"/", "/DIR", "/dir/"}) {
    EXPECT_TRUE(cloud_->Stat(path, &size, &folder) && folder) << path;
  }
  ASSERT_TRUE(cloud_->CopyOnServer("/dir", "/copy"));
  EXPECT_EQ(ReadFile(Path("copy/inside")), "kept");
  EXPECT_TRUE(cloud_->Remove("/copy/inside") && cloud_->Remove("/copy"));
  EXPECT_TRUE(cloud_->IsIgnoredPath("/share/.dropbox.attr"));
  EXPECT_TRUE(cloud_->IsIgnoredPath("/share/.dropbox.cache/x"));
  EXPECT_FALSE(cloud_->IsIgnoredPath("/share/.dropbox.txt"));
}

// What breaks, and what is seen of it in the requests.
struct Break {
  const char* endpoint;
  const char* fault;
  std::size_t size;
  const char* trace;
};

constexpr const char* kBusy = R"("kind": "status", "status": 429, "retry_after": 1)";
constexpr const char* kCut = R"("kind": "cut", "bytes": 300000)";
constexpr const char* kLose = R"("kind": "lose")";
constexpr const char* kDamage = R"("kind": "damage")";
constexpr const char* kExpire = R"("kind": "expire")";
constexpr const char* kFailed = R"("kind": "status", "status": 500)";
constexpr const char* kGone =
    R"("kind": "status", "status": 409, "error": {".tag": "not_found"}, "skip": 1)";

constexpr std::array kUploadBreaks{
    Break{"files/upload", kBusy, kPart, "files/upload 429"},
    Break{"files/upload", kCut, kPart, "files/upload cut"},
    Break{"files/upload", kLose, kPart, "files/upload cut"},
    Break{"files/upload", kDamage, kPart, "files/upload 409"},
    Break{"files/upload", kExpire, kPart, "files/upload 401"},
    Break{"files/upload", kFailed, 0, "files/upload 500"},
    Break{"files/upload_session/start", kCut, kInParts, "start cut"},
    Break{"files/upload_session/append_v2", kExpire, kInParts, "append_v2 401"},
    Break{"files/upload_session/append_v2", kCut, kInParts, "append_v2 cut"},
    Break{"files/upload_session/append_v2", kDamage, kInParts, "append_v2 409"},
    Break{"files/upload_session/append_v2", kLose, kInParts, "append_v2 409 1048576"},
    Break{"files/upload_session/append_v2", kGone, kInParts, "append_v2 409"},
    Break{"files/upload_session/finish", kCut, kInParts, "finish 200 3145728"},
    Break{"files/upload_session/finish", kLose, kInParts, "finish 409 3145728"},
};

TEST_F(DropboxTest, AnUploadGoesOnWhereItStopped) {
  for (const Break& one : kUploadBreaks) {
    SCOPED_TRACE(std::string(one.endpoint) + " " + one.fault);
    ASSERT_TRUE(Upload("file", "old"));
    ForgetRequests();
    Order(one.endpoint, one.fault);
    const std::string text = RandomText(one.size);
    ASSERT_TRUE(Upload("file", text)) << std::hex << VLIBCErrGet() << "\n" << Log();
    EXPECT_TRUE(ReadFile(Path("file")) == text);
    EXPECT_EQ(watch.counted, text.size()) << "nothing is counted twice";
    EXPECT_THAT(Names(), ElementsAre("file"));
    EXPECT_THAT(Log(), HasSubstr(one.trace));
    EXPECT_LE(Requests("append_v2 200 1048576"), one.fault == kGone ? 2 : 1)
        << "no part is taken twice\n"
        << Log();
  }
}

TEST_F(DropboxTest, ADownloadGoesOnWhereItStopped) {
  const std::string text = RandomText(kInParts);
  WriteFile(Path("file"), text);
  std::string copy;
  Order("files/download", kCut);
  ASSERT_TRUE(Download("file", kInParts, &copy)) << std::hex << VLIBCErrGet() << "\n" << Log();
  EXPECT_TRUE(copy == text);
  EXPECT_EQ(watch.counted, kInParts);
  EXPECT_EQ(Requests("files/download 206 300000"), 1) << Log();
  Order("files/download", kExpire);
  ASSERT_TRUE(Download("file", kInParts, &copy));
  EXPECT_TRUE(copy == text);
}

TEST_F(DropboxTest, WhatIsNotTheFileIsRefused) {
  WriteFile(Path("file"), RandomText(kInParts));
  std::string copy;
  const auto refused = [&](std::uint64_t size) {
    EXPECT_FALSE(Download("file", size, &copy));
    EXPECT_EQ(VLIBCErrGet(), core::kErrInputOutput);
  };
  refused(kInParts - 1);
  refused(kInParts + 1);
  EXPECT_EQ(copy, "");
  Order("files/download", kDamage);
  refused(kInParts);
  Order("files/download", R"("kind": "cut", "bytes": 2000000)");
  watch.at_half = [&] {
    WriteFile(folder_ / "new", std::string(kInParts, 'x'));
    std::filesystem::rename(folder_ / "new", Path("file"));
  };
  refused(kInParts);
  EXPECT_EQ(copy.find("xxxxxxxxxxxxxxxx"), std::string::npos) << "no two files are mixed";

  for (const auto& [endpoint, size] :
       {std::pair{"files/upload", kPart}, std::pair{"files/upload_session/finish", kInParts}}) {
    Order(endpoint, R"("kind": "lie")");
    EXPECT_FALSE(Upload("lie", RandomText(size)));
    EXPECT_EQ(VLIBCErrGet(), core::kErrInputOutput);
    EXPECT_THAT(Names(), ElementsAre("file")) << "what is not confirmed does not stay";
  }
  const core::UniqueFd empty(open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  EXPECT_FALSE(
      Cloud::UploadFile(cloud_.get(), "/short", empty.get(), 100, nullptr, nullptr, nullptr));
  EXPECT_EQ(VLIBCErrGet(), core::kErrInputOutput);
  WriteFile(Path("text.paper"), "12345");
  EXPECT_FALSE(Download("text.paper", 5, &copy));
  EXPECT_EQ(VLIBCErrGet(), core::kErrSeeErrno);
  EXPECT_EQ(errno, EOPNOTSUPP);
}

TEST_F(DropboxTest, WhatTheServiceRefusesIsToldByItsReason) {
  struct Case {
    int status;
    const char* error;
    int core;
    int attempts;
  };
  for (const Case& one : {
           Case{409, R"({".tag": "path", "reason": {".tag": "insufficient_space"}})",
                core::kErrNoSpace, 1},
           Case{409, R"({".tag": "path", "reason": {".tag": "no_write_permission"}})",
                core::kErrNotPermitted, 1},
           Case{401, R"({".tag": "invalid_access_token"})", core::kErrNotPermitted, 1},
           Case{403, "{}", core::kErrNotPermitted, 1},
           Case{400, R"("nonsense")", core::kErrInputOutput, 1},
           Case{503, "null", core::kErrHostDown, 4},
       }) {
    SCOPED_TRACE(one.error);
    ForgetRequests();
    Order("files/upload", R"("kind": "status", "times": 9, "status": )" +
                              std::to_string(one.status) + R"(, "error": )" + one.error);
    EXPECT_FALSE(Upload("file", "x"));
    EXPECT_EQ(VLIBCErrGet(), one.core);
    EXPECT_EQ(cloud_->GetErrorCode(), one.status);
    EXPECT_EQ(Requests("files/upload "), one.attempts);
  }
  EXPECT_THAT(Names(), IsEmpty());
  Start({"--quota", "2000000"});
  ASSERT_TRUE(Upload("file", "old"));
  EXPECT_FALSE(Upload("file", RandomText(kInParts)));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNoSpace);
  EXPECT_EQ(ReadFile(Path("file")), "old");
  EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(DropboxTest, AStopEndsTheTransferAndLeavesTheOldFile) {
  ASSERT_TRUE(Upload("file", "old"));
  std::string copy;
  for (const char* way : {"upload", "download"}) {
    watch.stop = false;
    watch.at_half = [] { watch.stop = true; };
    const bool up = std::string(way) == "upload";
    if (!up) WriteFile(Path("large"), RandomText(kInParts));
    EXPECT_FALSE(up ? Upload("file", RandomText(kInParts)) : Download("large", kInParts, &copy));
    EXPECT_EQ(errno, ECANCELED) << way;
    EXPECT_LT(watch.counted, kInParts);
  }
  // Stopped when all has been read and the service does not answer.
  Order("files/upload", R"("kind": "stall")");
  const core::UniqueFd fd(open(Path("large").c_str(), O_RDONLY | O_CLOEXEC));
  watch.counted = 0;
  EXPECT_FALSE(Cloud::UploadFile(
      cloud_.get(), "/file", fd.get(), kPart, &CountBytes,
      [] { return watch.counted == kPart ? 1 : 0; }, nullptr));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_EQ(ReadFile(Path("file")), "old");
  EXPECT_THAT(Names(), ElementsAre("file", "large"));
}

TEST_F(DropboxTest, TwoAccountsPassFilesOnByReferenceAndThroughThisMachine) {
  const std::unique_ptr<Cloud> second = OpenSecond();
  const std::filesystem::path there = std::filesystem::path(Second()) / "There";
  const std::string text = RandomText(kInParts);
  WriteFile(Path("file"), text);
  for (const char* round : {"new", "replaced"}) {
    EXPECT_TRUE(TAVOCloud::Dropbox::CopyFromRef(second.get(), "/file", "/There", cloud_.get()))
        << std::hex << VLIBCErrGet();
    EXPECT_TRUE(ReadFile(there) == text) << round;
    WriteFile(there, "old");
  }
  EXPECT_EQ(Requests("files/download"), 0) << "no data came through here";
  EXPECT_FALSE(TAVOCloud::Dropbox::CopyFromRef(second.get(), "/none", "/x", cloud_.get()));
  EXPECT_EQ(VLIBCErrGet(), core::kErrNotFound);
  EXPECT_FALSE(TAVOCloud::Dropbox::CopyFromRef(second.get(), "/file", "/x", nullptr));
  EXPECT_EQ(VLIBCErrGet(), core::kErrBadArgument);

  Order("files/upload_session/append_v2", kCut);
  watch.counted = 0;
  EXPECT_TRUE(Cloud::CopyFile(cloud_.get(), second.get(), "dropbox://server/file",
                              "dropbox://second/there", kInParts, &CountBytes, &ShallStop,
                              &GrantSome))
      << std::hex << VLIBCErrGet();
  EXPECT_TRUE(ReadFile(there) == text) << "a pipe cannot be read twice";
  EXPECT_EQ(watch.counted, kInParts);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Second()), {}), 1);
}

TEST_F(DropboxTest, NobodyIsLetInByMistake) {
  const auto refused = [this](const core::RemoteConfig& remote) {
    Open(remote);
    std::string err;
    EXPECT_FALSE(cloud_->Connect(&err));
    EXPECT_EQ(VLIBCErrGet(), core::kErrNotPermitted) << err;
    EXPECT_FALSE(Upload("file", "x"));
    EXPECT_THAT(Names(), IsEmpty());
    return err;
  };
  core::RemoteConfig remote = box_->remote();
  remote.token_file = folder_ / "token";
  EXPECT_THAT(refused(remote), HasSubstr("token"));
  for (const auto& [text, words] :
       {std::pair{"[1", "is not a JSON object"}, std::pair{R"({"refresh_token": "t"})", "app_key"},
        std::pair{R"({"refresh_token": "s3cret", "app_key": "key0"})",
                  "refuses the refresh token"}}) {
    WriteFile(remote.token_file, text, 0600);
    EXPECT_THAT(refused(remote), testing::AllOf(HasSubstr(words), Not(HasSubstr("s3cret"))));
  }
  chmod(remote.token_file.c_str(), 0644);
  EXPECT_THAT(refused(remote), HasSubstr("token"));

  Start({"--tls"});
  EXPECT_TRUE(Upload("file", "x")) << "its certificate is trusted";
  std::filesystem::remove(Path("file"));
  remote = box_->remote();
  remote.host = "localhost";
  refused(remote);  // the certificate is for another name
  remote.ca_file = "";
  EXPECT_THAT(refused(remote), HasSubstr("certificate"));
}

TEST_F(DropboxTest, AServerThatIsGoneIsTold) {
  std::string err;
  ASSERT_TRUE(cloud_->Connect(&err)) << err;
  box_->Stop();
  EXPECT_FALSE(cloud_->Connect(&err));
  EXPECT_EQ(VLIBCErrGet(), core::kErrHostDown);
  EXPECT_EQ(errno, ECONNREFUSED);
}

}  // namespace
