#include "cloud/read_ahead.h"

#include <cerrno>
#include <utility>

#include "core/error.h"
#include "failure.h"
#include "server_cloud.h"
#include "vfs/mounts.h"

namespace TAVOCloud {

ReadAhead::ReadAhead(const Cloud& cloud) {
  const auto* server = dynamic_cast<const ServerCloud*>(&cloud);
  if (server == nullptr) return;
  for (std::size_t left = server->SpareConnections(); left > 0; --left) {
    std::unique_ptr<Cloud> another = server->Another();  // connects when it is first used
    if (another != nullptr) idle_.push_back(std::move(another));
  }
}

ReadAhead::~ReadAhead() = default;

std::unique_ptr<Cloud> ReadAhead::Take() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (idle_.empty()) return nullptr;
  std::unique_ptr<Cloud> cloud = std::move(idle_.back());
  idle_.pop_back();
  return cloud;
}

// One that is given up, and those beside it, make room for the mount's connections.
void ReadAhead::GiveBack(std::unique_ptr<Cloud> cloud, bool closes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  closed_ = closed_ || closes;
  if (closed_) {
    idle_.clear();
  } else {
    idle_.push_back(std::move(cloud));
  }
}

void ReadAhead::GiveUp() {
  const std::lock_guard<std::mutex> lock(mutex_);
  closed_ = true;
  idle_.clear();
}

bool ReadAhead::Fetch(const std::string& serverPath, int fd, std::uint64_t size, CancelFn cancel) {
  std::unique_ptr<Cloud> cloud = Take();
  if (cloud == nullptr) {
    errno = EAGAIN;
    VLIBCErrSetEx(core::kErrSeeErrno, __FILE__, __LINE__);
    return false;
  }
  const bool done = cloud->Download(serverPath, fd, size, nullptr, cancel, nullptr);
  const int why = errno;
  const int code = done ? 0 : cloud->GetErrorCode();
  GiveBack(std::move(cloud),
           code == kNoMoreConnections || (code != 0 && vfs::MayMeanServerLost(why)));
  errno = why;
  return done;
}

}  // namespace TAVOCloud
