#include "fake_cloud.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "core/unique_fd.h"

using TAVOCloud::CancelFn;
using TAVOCloud::Cloud;
using TAVOCloud::ProgressFn;
using TAVOCloud::ReadSizeFn;

std::string OnlyCall() {
  return cloudScript.calls.empty()       ? ""
         : cloudScript.calls.size() == 1 ? cloudScript.calls[0]
                                         : "many";
}

namespace {

bool Move(int from, int to) {
  char buffer[4096];
  long left = cloudScript.transfers ? std::numeric_limits<long>::max() : cloudScript.breakAfter;
  while (left > 0) {
    const ssize_t got = read(from, buffer, static_cast<std::size_t>(std::min(4096L, left)));
    if (got <= 0) break;
    if (write(to, buffer, static_cast<std::size_t>(got)) != got) return false;
    left -= got;
  }
  return cloudScript.transfers;
}

core::UniqueFd OnServer(const std::string& path, int flags) {
  return core::UniqueFd(open((cloudScript.root + path).c_str(), flags, 0644));
}

class FakeCloud : public Cloud {
 public:
  explicit FakeCloud(const std::string& uri)
      : kind_(uri.find("/src") != std::string::npos ? cloudScript.srcKind : cloudScript.destKind) {
    serverId_ = !cloudScript.serverId.empty() ? cloudScript.serverId
                : cloudScript.sameServer      ? "server"
                                              : uri;
    ++cloudScript.alive;
  }
  ~FakeCloud() override { --cloudScript.alive; }
  std::string Name() const override { return "fake"; }
  bool Connect(std::string* /*err*/) override { return true; }
  bool IsIgnoredPath(const std::string& /*path*/) override { return cloudScript.ignoresPath; }
  bool IsAcceptedSize(std::uint64_t /*bytes*/) override { return cloudScript.acceptsSize; }
  int Kind() const override { return kind_; }
  bool Stat(const std::string&, std::uint64_t*, bool*) override { return false; }
  bool MakeFolder(const std::string&) override { return false; }
  bool Remove(const std::string&) override { return false; }
  bool Rename(const std::string&, const std::string&) override { return false; }
  bool Download(const std::string& path, int fd, std::uint64_t, ProgressFn, CancelFn,
                ReadSizeFn) override {
    return Outcome(Move(OnServer(path, O_RDONLY).get(), fd));
  }
  bool Upload(const std::string& path, int fd, std::uint64_t, ProgressFn, CancelFn,
              ReadSizeFn) override {
    return Outcome(Move(fd, OnServer(path, O_WRONLY | O_CREAT | O_TRUNC).get()));
  }
  bool CopyOnServer(const std::string& from, const std::string& to) override {
    cloudScript.calls.push_back("server copy " + from + " " + to);
    return Outcome(cloudScript.transfers);
  }
  bool Outcome(bool done) {
    errorCode_ = done ? 0 : cloudScript.errorCode;
    return done;
  }

 private:
  int kind_;
};

}  // namespace

bool Cloud::DownloadFile(Cloud* cloud, const std::string& path, int fd, std::uint64_t size,
                         ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  cloudScript.calls.push_back("download");
  return cloud->Download(path, fd, size, progress, cancel, readSize);
}

bool Cloud::UploadFile(Cloud* cloud, const std::string& path, int fd, std::uint64_t size,
                       ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  cloudScript.calls.push_back("upload");
  return cloud->Upload(path, fd, size, progress, cancel, readSize);
}

bool Cloud::CopyFile(Cloud* source, Cloud* /*dest*/, const std::string& /*sourcePath*/,
                     const std::string& /*destPath*/, std::uint64_t, ProgressFn, CancelFn,
                     ReadSizeFn) {
  cloudScript.calls.emplace_back("copy");
  return static_cast<FakeCloud*>(source)->Outcome(cloudScript.transfers);
}

std::string Cloud::GetServerPathBySharePath(const std::string& remotePath) const {
  return "@" + remotePath;
}

bool TAVOCloud::Dropbox::CopyFromRef(Cloud* dest, const std::string& /*from*/,
                                     const std::string& /*to*/, Cloud* /*source*/) {
  cloudScript.calls.emplace_back("by reference");
  return static_cast<FakeCloud*>(dest)->Outcome(cloudScript.transfers);
}

Cloud* TAVOCloud::Utils::CreateCloudByURI(uid_t /*uid*/, const std::string& uri, int configMode) {
  if (!cloudScript.reachable || configMode != 1) return nullptr;
  return std::make_unique<FakeCloud>(uri).release();
}
