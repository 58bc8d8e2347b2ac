#include "transfer_fixture.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <random>
#include <utility>

#include "core/unique_fd.h"

using TAVOCloud::Cloud;

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

std::string ReadAll(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TransferTest::TransferTest() {
  std::string pattern = testing::TempDir() + "/cloud-test-XXXXXX";
  folder_ = std::filesystem::canonical(mkdtemp(pattern.data()));
  data_ = folder_ / "data";
  std::filesystem::create_directory(data_);
  watch = {};
}

TransferTest::~TransferTest() {
  cloud_.reset();
  server_.reset();
  core::SetConfig({});
  std::filesystem::remove_all(folder_);
}

bool TransferTest::StartServer(const std::string& protocol) {
  if (protocol == "sftp") {
    server_ = std::make_unique<SshServer>(folder_);
  } else {
    server_ = std::make_unique<FtpServer>(folder_, protocol == "ftps");
  }
  if (!server_->Start()) return false;
  Use(server_->Remote());
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
  *text = ReadAll(copy);
  return done;
}

std::vector<std::string> TransferTest::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(data_)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}
