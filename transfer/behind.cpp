// Small files that the cloud library still carries when the data hook returns.
#include "cloud/behind.h"

#include "cloud/read_ahead.h"
#include "support/path_info.h"
#include "transfer/cache_mark.h"
#include "transfer/cloud_objects.h"
#include "transfer/remote_params.h"
#include "transfer/streams.h"
#include "vfs/vfs.h"
#include "webapi/behind_calls.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

TAVOCloud::Cloud* CloudAt(int fetch) { return fetch != 0 ? _srcCloud : _destCloud; }

int Fetches(const char* src, const char* dst, long size) {
  TransferJob job{src, dst, nullptr, nullptr, size, nullptr, nullptr, nullptr, false, {}, {}};
  job.source.isVfs = WfmLibIsVFSFullPath(src);
  job.dest.isVfs = WfmLibIsVFSFullPath(dst);
  const bool fetches = job.source.isVfs && !job.dest.isVfs && LookAtParams(job) &&
                       job.source.useCurl && !PrefersDescriptors(job);
  return fetches ? 1 : 0;
}

void LetNext(int fetch) { TAVOCloud::Behind::LetNext(CloudAt(fetch)); }

unsigned long long Last(int fetch) { return TAVOCloud::Behind::LastOf(CloudAt(fetch)); }

int Await(int fetch, const char* dst, unsigned long long number) {
  if (!TAVOCloud::Behind::Await(CloudAt(fetch), number)) return -1;
  // One that was not left behind has come first.
  if (!_mountTakesNoMarks) MarkCacheStale(dst);
  return 0;
}

class FtpFolder : public TAVOAHEADSOURCE {
 public:
  FtpFolder(std::shared_ptr<TAVOCloud::ReadAhead> connections, std::string path)
      : connections_(std::move(connections)), path_(std::move(path)) {}

  bool Read(const char* name, int fd, std::uint64_t size) override {
    return connections_->Fetch(path_ + "/" + name, fd, size, MVCPIsCancelled);
  }
  void GiveUp() override { connections_->GiveUp(); }

 private:
  std::shared_ptr<TAVOCloud::ReadAhead> connections_;
  std::string path_;  // on the server
};

// The descriptor that the data hook gets of a small file on an FTP server need not be the mount's.
std::unique_ptr<TAVOAHEADSOURCE> Ahead(const char* src) {
  TransferJob job{src, "", nullptr, nullptr, 0, nullptr, nullptr, nullptr, false, {}, {}};
  job.source.isVfs = WfmLibIsVFSFullPath(src);
  if (!job.source.isVfs || !LookAtParams(job)) return nullptr;
  if (!job.source.useCurl || !job.source.isFtpLike() || job.singleConnection) return nullptr;
  const std::unique_ptr<TAVOCloud::Cloud> cloud(TAVOCloud::Utils::CreateCloudByURI(
      TAVOVFS::GetActorUID(), job.source.remotePath, kConfigMode));
  if (cloud == nullptr) return nullptr;
  if (_readAhead == nullptr || _readAheadServer != cloud->GetServerID()) {
    _readAhead = std::make_shared<TAVOCloud::ReadAhead>(*cloud);
    _readAheadServer = cloud->GetServerID();
  }
  return std::make_unique<FtpFolder>(_readAhead,
                                     cloud->GetServerPathBySharePath(job.source.remotePath));
}

}  // namespace

const TAVOBEHINDHOOKS kBehindHooks{Fetches, LetNext, Last, Await, Ahead};

}  // namespace Fennox
