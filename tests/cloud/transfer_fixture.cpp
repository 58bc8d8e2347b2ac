#include "transfer_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <sstream>
#include <thread>
#include <utility>

#include "core/error.h"
#include "core/unique_fd.h"
#include "leftovers.h"

using TAVOCloud::Cloud;
using testing::ElementsAre;

int CountBytes(unsigned long long bytes, unsigned long long /*unused*/) {
  watch.counted += bytes;
  if (watch.at_half && watch.counted >= watch.half) std::exchange(watch.at_half, nullptr)();
  return 0;
}

int ShallStop() { return watch.stop ? 1 : 0; }

long long GrantSome(unsigned long long bytes) {
  ++watch.asked;
  return static_cast<long long>(std::min<unsigned long long>(bytes, 100'000));
}

std::string RandomText(std::size_t length) {
  std::mt19937 random(static_cast<unsigned>(length));
  std::string text(length, '\0');
  for (char& c : text) c = static_cast<char>(random());
  return text;
}

std::string AbandonedUploadBeside(const std::string& path) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    const std::string name = TAVOCloud::UploadPathBeside(path);
    _exit(write(ends[1], name.data(), name.size()) < 0 ? 1 : 0);
  }
  close(ends[1]);
  std::string name(4096, '\0');
  const ssize_t got = read(ends[0], name.data(), name.size());
  close(ends[0]);
  waitpid(child, nullptr, 0);
  name.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  return name;
}

TransferTest::TransferTest() {
  std::filesystem::create_directory(data_);
  watch = {};
}

TransferTest::~TransferTest() {
  cloud_.reset();
  core::SetConfig({});
}

bool TransferTest::StartServer(const std::string& protocol, std::vector<std::string> options) {
  options.insert(options.end(), {"--root", data_});
  if (protocol == "ftps") options.emplace_back("--tls");
  if (!server_.Start((protocol == "ftps" ? "ftp" : protocol) + ".py", options)) return false;
  core::RemoteConfig remote = server_.remote();
  remote.connect_timeout = protocol == "webdav" ? 4 : 2;  // a lost server is soon given up
  Use(remote);
  // Accounts that are no logins get no SSH session; root always does.
  return protocol != "sftp" || geteuid() == 0 || (cloud_ != nullptr && cloud_->Connect(nullptr));
}

void TransferTest::Use(core::RemoteConfig remote) {
  remote.mount = folder_;
  remote.path = data_;
  core::Config config;
  config.remotes.push_back(remote);
  core::SetConfig(config);
  cloud_.reset(TAVOCloud::Utils::CreateCloudByURI(geteuid(), remote.protocol + "://server/", 1));
  ASSERT_NE(cloud_, nullptr);
}

bool TransferTest::Upload(const std::string& name, const std::string& text) {
  const core::UniqueFd fd(open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (!fd || write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
      lseek(fd.get(), 0, SEEK_SET) != 0) {
    ADD_FAILURE() << "no source file";
    return false;
  }
  watch.counted = 0;
  watch.half = text.size() / 2;
  return Cloud::UploadFile(cloud_.get(), cloud_->GetServerID() + name, fd.get(), text.size(),
                           &CountBytes, &ShallStop, &GrantSome);
}

bool TransferTest::Download(const std::string& name, std::uint64_t size, std::string* text) {
  const std::filesystem::path copy = folder_ / "copy";
  const core::UniqueFd fd(open(copy.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  watch.counted = 0;
  watch.half = size / 2;
  const bool done = Cloud::DownloadFile(cloud_.get(), cloud_->GetServerID() + name, fd.get(), size,
                                        &CountBytes, &ShallStop, &GrantSome);
  *text = ReadFile(copy);
  return done;
}

std::vector<std::string> TransferTest::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(data_)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with(".davfs.tmp")) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

int TransferTest::Requests(const std::string& words, int expected) const {
  int count = 0;
  for (int round = 0; round < 500; ++round) {
    count = 0;
    std::istringstream log(ReadFile(server_.own() / "access.log"));
    for (std::string line; std::getline(log, line);) {
      count += line.find(words) != std::string::npos ? 1 : 0;
    }
    if (count >= expected) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return count;
}

void TransferTest::ExpectWholeFiles(const std::vector<std::size_t>& sizes) {
  for (const std::size_t size : sizes) {
    const std::string text = RandomText(size);
    watch.asked = 0;
    ASSERT_TRUE(Upload("file", text)) << size << std::hex << " error " << VLIBCErrGet();
    EXPECT_TRUE(ReadFile(Path("file")) == text) << size;
    EXPECT_EQ(watch.counted, size);
    EXPECT_THAT(Names(), ElementsAre("file"));
    EXPECT_GE(watch.asked, size / 100'000);

    std::string copy;
    watch.asked = 0;
    ASSERT_TRUE(Download("file", size, &copy)) << size;
    EXPECT_TRUE(copy == text) << size;
    EXPECT_EQ(watch.counted, size);
    EXPECT_GE(watch.asked, size / 100'000);
  }
}
