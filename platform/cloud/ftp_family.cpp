#include "ftp_family.h"

#include <cerrno>

#include "core/error.h"
#include "retry.h"

namespace TAVOCloud {

FtpFamily::FtpFamily(const core::RemoteConfig& remote, const std::string& serverId)
    : ServerCloud(serverId, "ftp_family.cpp"), connection_(remote) {}

std::unique_ptr<ServerCloud> FtpFamily::Another() const {
  return std::make_unique<FtpFamily>(connection_.remote(), serverId_);
}

bool FtpFamily::Fail(const Outcome& outcome) { return Fail(Explain(outcome), outcome.words); }

bool FtpFamily::Connect(std::string* err) {
  errorCode_ = 0;
  const Outcome outcome = connection_.Open();
  if (outcome.ok()) return true;
  if (err != nullptr) *err = outcome.words;
  return Fail(outcome);
}

// These servers make no files by themselves, and leave sizes to their disks.
bool FtpFamily::IsIgnoredPath(const std::string& /*sourcePath*/) { return false; }
bool FtpFamily::IsAcceptedSize(std::uint64_t /*bytes*/) { return true; }

bool FtpFamily::Stat(const std::string& serverPath, std::uint64_t* size, bool* folder) {
  if (!CheckPath(serverPath)) return false;
  *size = 0;
  *folder = connection_.Folder(serverPath).ok();
  if (*folder) return true;
  const Outcome outcome = connection_.Size(serverPath, size);
  return outcome.ok() || Fail(outcome);
}

bool FtpFamily::MakeFolder(const std::string& serverPath) {
  if (!CheckPath(serverPath)) return false;
  const Outcome outcome = connection_.Run({"MKD " + serverPath});
  return outcome.ok() || Fail(outcome);
}

Outcome FtpFamily::RemoveFile(const std::string& path) { return connection_.Run({"DELE " + path}); }

bool FtpFamily::Remove(const std::string& serverPath) {
  if (!CheckPath(serverPath)) return false;
  const Outcome outcome = RemoveFile(serverPath);
  if (outcome.ok()) return true;
  const Outcome folder = connection_.Run({"RMD " + serverPath});
  return folder.ok() || Fail(outcome);
}

Outcome FtpFamily::RunRename(const std::string& from, const std::string& to) {
  return connection_.Run({"RNFR " + from, "RNTO " + to});
}

bool FtpFamily::Rename(const std::string& from, const std::string& to) {
  if (!CheckPath(from) || !CheckPath(to)) return false;
  const Outcome outcome = RunRename(from, to);
  return outcome.ok() || Fail(outcome);
}

// The protocols have no such request.
bool FtpFamily::CopyOnServer(const std::string& /*from*/, const std::string& /*to*/) {
  errorCode_ = 0;
  return Fail(EOPNOTSUPP, core::kErrSeeErrno);
}

FtpFamily::Next FtpFamily::Judge(const Outcome& outcome, Flow* flow, int attempt) {
  if (flow->error() != 0) {
    FailLocally(*flow);
    return Next::kFailed;
  }
  if (outcome.ok()) return Next::kDone;
  // A server that was not to be reached in the first place is not asked again; a
  // kept connection may have been closed in the meantime.
  const bool closed = outcome.response == kServiceClosing;
  const bool kept = !outcome.fresh && outcome.code != CURLE_COULDNT_CONNECT &&
                    (outcome.code != CURLE_OPERATION_TIMEDOUT || closed);
  const bool begun = attempt > 1 || flow->moved() > 0 || kept || outcome.code == CURLE_PARTIAL_FILE;
  if (!begun || IsHang(outcome, attempt) || attempt >= kMostAttempts || !Explain(outcome).broken) {
    Fail(outcome);
    return Next::kFailed;
  }
  if (PauseAfter(attempt, flow, 0, connection_.remote().connect_timeout)) return Next::kAgain;
  FailLocally(*flow);
  return Next::kFailed;
}

bool FtpFamily::Download(const std::string& serverPath, int fd, std::uint64_t size,
                         ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  if (!CheckPath(serverPath)) return false;
  Flow flow(fd, size, progress, cancel, readSize);
  flow.WriteApart();
  connection_.Watch(&flow);
  const bool received = Receive(serverPath, &flow);
  connection_.Watch(nullptr);
  return received;
}

bool FtpFamily::Receive(const std::string& serverPath, Flow* flow) {
  const std::uint64_t size = flow->size();
  for (int attempt = 1;; ++attempt) {
    Outcome outcome;
    std::uint64_t now = size;
    if (attempt > 1) outcome = connection_.Size(serverPath, &now);
    if (outcome.ok() && now != size) return Fail(EIO, core::kErrInputOutput);
    if (outcome.ok() && (size == 0 || flow->moved() < size)) {
      outcome = connection_.Download(serverPath, flow->moved(), flow);
    }
    if (!flow->Flush()) return FailLocally(*flow);
    const Next next = Judge(outcome, flow, attempt);
    if (next == Next::kFailed) return false;
    if (next == Next::kDone) break;
  }
  // Its size has changed since the caller looked.
  return flow->moved() == size || Fail(EIO, core::kErrInputOutput);
}

}  // namespace TAVOCloud
