#include "sftp.h"

#include <cerrno>
#include <utility>

#include "core/error.h"
#include "retry.h"
#include "sftp_failure.h"
#include "sftp_listing.h"
#include "signal_guard.h"

namespace TAVOCloud {

using End = SshOutcome::End;

Sftp::Sftp(const core::RemoteConfig& remote, const std::string& serverId)
    : ServerCloud(serverId, "sftp.cpp"), channel_(remote) {}

std::unique_ptr<ServerCloud> Sftp::Another() const {
  return std::make_unique<Sftp>(channel_.remote(), serverId_);
}

bool Sftp::Fail(const SshOutcome& outcome) { return Fail(Explain(outcome), outcome.words); }

bool Sftp::Connect(std::string* err) {
  errorCode_ = 0;
  const SshOutcome outcome = channel_.Open();
  if (outcome.ok()) return true;
  if (err != nullptr) *err = outcome.words;
  return Fail(outcome);
}

// These servers make no files by themselves, and leave sizes to their disks.
bool Sftp::IsIgnoredPath(const std::string& /*sourcePath*/) { return false; }
bool Sftp::IsAcceptedSize(std::uint64_t /*bytes*/) { return true; }

SshOutcome Sftp::RunOn(SftpType type, const std::string& path) {
  SshOutcome outcome = channel_.Open();
  if (!outcome.ok()) return outcome;
  const auto asked = channel_.Post(type, [&](PacketWriter& fields) {
    fields.Text(path);
    if (type == SftpType::kMakeFolder) fields.NoAttributes();
  });
  return channel_.AwaitStatus(asked, path);
}

SshOutcome Sftp::RunRename(const std::string& from, const std::string& to, bool replace) {
  SshOutcome outcome = channel_.Open();
  if (!outcome.ok()) return outcome;
  const bool extended = replace && channel_.limits().replaces;
  const auto asked =
      channel_.Post(extended ? SftpType::kExtended : SftpType::kRename, [&](PacketWriter& fields) {
        if (extended) fields.Text("posix-rename@openssh.com");
        fields.Text(from).Text(to);
      });
  return channel_.AwaitStatus(asked, to);
}

SshOutcome Sftp::Ask(const std::string& path, SftpAttributes* attributes) {
  SshOutcome outcome = channel_.Open();
  if (!outcome.ok()) return outcome;
  const auto asked =
      channel_.Post(SftpType::kStat, [&](PacketWriter& fields) { fields.Text(path); });
  return channel_.AwaitAttributes(asked, path, attributes);
}

bool Sftp::Stat(const std::string& serverPath, std::uint64_t* size, bool* folder) {
  if (!CheckPath(serverPath)) return false;
  SftpAttributes attributes;
  const SshOutcome outcome = Ask(serverPath, &attributes);
  *folder = attributes.folder;
  *size = attributes.folder ? 0 : attributes.size;
  return outcome.ok() || Fail(outcome);
}

bool Sftp::MakeFolder(const std::string& serverPath) {
  if (!CheckPath(serverPath)) return false;
  const SshOutcome outcome = RunOn(SftpType::kMakeFolder, serverPath);
  return outcome.ok() || Fail(outcome);
}

bool Sftp::Remove(const std::string& serverPath) {
  if (!CheckPath(serverPath)) return false;
  const SshOutcome outcome = RunOn(SftpType::kRemove, serverPath);
  return outcome.ok() || RunOn(SftpType::kRemoveFolder, serverPath).ok() || Fail(outcome);
}

bool Sftp::Rename(const std::string& from, const std::string& to) {
  if (!CheckPath(from) || !CheckPath(to)) return false;
  const SshOutcome outcome = RunRename(from, to, false);
  return outcome.ok() || Fail(outcome);
}

// The protocol has no such request that servers know.
bool Sftp::CopyOnServer(const std::string& /*from*/, const std::string& /*to*/) {
  errorCode_ = 0;
  return Fail(EOPNOTSUPP, core::kErrSeeErrno);
}

Sftp::Next Sftp::Judge(const SshOutcome& outcome, Flow* flow, int attempt) {
  if (flow->error() != 0) {
    FailLocally(*flow);
    return Next::kFailed;
  }
  if (outcome.ok()) return Next::kDone;
  // A server that was not to be reached in the first place is not asked again; a kept connection
  // may have been closed in the meantime. One that hangs is waited for once.
  const bool begun = attempt > 1 || flow->moved() > 0 || !outcome.fresh;
  const bool hangs = outcome.end == End::kSilent && attempt > 1;
  if (!begun || hangs || attempt >= kMostAttempts || !Explain(outcome).broken) {
    Fail(outcome);
    return Next::kFailed;
  }
  if (PauseAfter(attempt, flow, 0, channel_.remote().connect_timeout)) return Next::kAgain;
  FailLocally(*flow);
  return Next::kFailed;
}

bool Sftp::Download(const std::string& serverPath, int fd, std::uint64_t size, ProgressFn progress,
                    CancelFn cancel, ReadSizeFn readSize) {
  if (!CheckPath(serverPath)) return false;
  const NoBrokenPipeSignal guard;
  Flow flow(fd, size, progress, cancel, readSize);
  SftpDownload download;
  download.path = serverPath;
  channel_.Watch(&flow);
  Next next = Next::kAgain;
  for (int attempt = 1; next == Next::kAgain; ++attempt) {
    next = Judge(FetchFile(&channel_, &download, &flow), &flow, attempt);
  }
  channel_.Watch(nullptr);
  return next == Next::kDone;
}

bool Sftp::Upload(const std::string& serverPath, int fd, std::uint64_t size, ProgressFn progress,
                  CancelFn cancel, ReadSizeFn readSize) {
  if (!CheckPath(serverPath)) return false;
  if (serverPath.back() == '/') return Fail(EISDIR, core::kErrFileExpected);
  const NoBrokenPipeSignal guard;
  Flow flow(fd, size, progress, cancel, readSize);
  SftpUpload upload;
  upload.path = UploadPathBeside(serverPath);
  upload.dated = sends_new_files();
  channel_.Watch(&flow);
  RemoveLeftoversBeside(serverPath);
  Next next = Next::kAgain;
  for (int attempt = 1; next == Next::kAgain; ++attempt) {
    next = Judge(SendFile(&channel_, &upload, &flow), &flow, attempt);
  }
  channel_.Watch(nullptr);
  if (next == Next::kDone && Publish(upload.path, serverPath, flow)) return true;
  Discard(upload.path);
  return false;
}

bool Sftp::Publish(const std::string& temporary, const std::string& target, const Flow& flow) {
  const SshOutcome outcome = RunRename(temporary, target, !sends_new_files());
  return outcome.ok() || SettleRename(outcome, temporary, target, flow);
}

// What is left to do after a rename that did not go well.
bool Sftp::SettleRename(const SshOutcome& outcome, const std::string& temporary,
                        const std::string& target, const Flow& flow) {
  SftpAttributes attributes;
  if (Explain(outcome).broken) {
    // Perhaps only the answer was lost.
    if (Explain(Ask(temporary, &attributes)).system != ENOENT) return Fail(outcome);
    const SshOutcome there = Ask(target, &attributes);
    if (!there.ok()) return Fail(there);
    return attributes.size == flow.size() || Fail(EIO, core::kErrInputOutput);
  }
  if (!Ask(target, &attributes).ok() || attributes.folder) return Fail(outcome);
  if (sends_new_files()) return Fail(EEXIST, core::kErrExists);
  return Replace(temporary, target);
}

// Where a rename does not replace: the old file is put aside until the new one has its name, and
// comes back when that fails.
bool Sftp::Replace(const std::string& temporary, const std::string& target) {
  const std::string aside = AsidePathBeside(target);
  const SshOutcome moved = RunRename(target, aside, false);
  if (!moved.ok()) return Fail(moved);
  const SshOutcome outcome = RunRename(temporary, target, false);
  if (!outcome.ok()) {
    (void)RunRename(aside, target, false);
    return Fail(outcome);
  }
  (void)RunOn(SftpType::kRemove, aside);
  return true;
}

std::vector<std::string> Sftp::LeftoversIn(const std::string& folder) {
  LeftoverPicker picker;
  channel_.Hurry(true);
  if (channel_.Open().ok()) ListFolder(&channel_, folder, &picker);
  channel_.Hurry(false);
  return picker.names();
}

void Sftp::RemoveLeftover(const std::string& path) { (void)RunOn(SftpType::kRemove, path); }

// Keeps the reason of the failure that led here.
void Sftp::Discard(const std::string& temporary) {
  const int saved = errno;
  channel_.Hurry(true);
  (void)RunOn(SftpType::kRemove, temporary);
  channel_.Hurry(false);
  errno = saved;
}

}  // namespace TAVOCloud
