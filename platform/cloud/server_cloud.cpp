#include "server_cloud.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "cloud/behind.h"
#include "core/error.h"
#include "server_path.h"

namespace TAVOCloud {
namespace {

constexpr int kMostSpare = 3;

}  // namespace

ServerCloud::ServerCloud(const std::string& serverId, const char* source) : source_(source) {
  serverId_ = serverId;
}

bool ServerCloud::Fail(int system, int core) {
  errno = system;
  VLIBCErrSetEx(core, __FILE__, __LINE__);
  return false;
}

bool ServerCloud::Fail(const Failure& failure, const std::string& words) {
  errorCode_ = failure.cloud;
  syslog(LOG_ERR, "%s:%d Remote %s: %s", source_, __LINE__, Name().c_str(), words.c_str());
  return Fail(failure.system, failure.core);
}

bool ServerCloud::FailLocally(const Flow& flow) {
  return Fail(flow.error(), core::ErrorFromErrno(flow.error()));
}

bool ServerCloud::CheckPath(const std::string& path) {
  errorCode_ = 0;
  return IsSendablePath(path) || Fail(EILSEQ, core::kErrIllegalName);
}

void ServerCloud::RemoveLeftoversBeside(const std::string& path) {
  const std::string folder = FolderOf(path);
  if (!seen_->Add(folder)) return;
  for (const std::string& name : LeftoversIn(folder)) RemoveLeftover(folder + name);
}

// The mount needs a connection, and so does this object.
std::size_t ServerCloud::SpareConnections() const {
  const int most = MostConnections();
  return static_cast<std::size_t>(most == 0 ? kMostSpare : std::clamp(most - 2, 0, kMostSpare));
}

void ServerCloud::LetNextStayBehind() {
  may_stay_behind_ = true;
  last_behind_ = 0;
  if (crew_ != nullptr) return;
  const auto make = [this] {
    std::unique_ptr<ServerCloud> another = Another();
    if (another != nullptr) {
      another->sends_new_files_ = true;
      another->seen_ = seen_;
    }
    return another;
  };
  crew_ = std::make_unique<Crew>(make, SpareConnections());
}

bool ServerCloud::LeaveBehind(Crew::File file, int fd, ReadSizeFn readSize) {
  last_behind_ = 0;
  struct stat st {};
  sends_new_files_ = std::exchange(may_stay_behind_, false);
  const bool may = sends_new_files_ && file.size <= Behind::kLargest && crew_->IsOpen() &&
                   fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  if (!may) return false;
  Flow pace(-1, file.size, nullptr, file.cancel, readSize);
  file.fd.reset(fcntl(fd, F_DUPFD_CLOEXEC, 0));
  if (!file.fd || !pace.AwaitGrants()) return false;
  last_behind_ = crew_->Post(std::move(file));
  return last_behind_ != 0;
}

bool ServerCloud::AwaitBehind(std::uint64_t number) {
  if (crew_ == nullptr) return Fail(ECONNABORTED, core::kErrInputOutput);
  return crew_->Await(number);
}

}  // namespace TAVOCloud
