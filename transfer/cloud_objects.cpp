#include "transfer/cloud_objects.h"

#include "transfer/kept_error.h"
#include "vfs/vfs.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

bool Have(TAVOCloud::Cloud*& cloud, const std::string& remotePath) {
  if (cloud == nullptr) {
    cloud = TAVOCloud::Utils::CreateCloudByURI(TAVOVFS::GetActorUID(), remotePath, kConfigMode);
  }
  return cloud != nullptr;
}

}  // namespace

bool HaveSourceCloud(const TransferJob& job) { return Have(_srcCloud, job.source.remotePath); }

bool HaveDestCloud(const TransferJob& job) { return Have(_destCloud, job.dest.remotePath); }

void DropClouds() {
  const KeptError keep;
  delete _srcCloud;
  _srcCloud = nullptr;
  delete _destCloud;
  _destCloud = nullptr;
}

}  // namespace Fennox
