// Uploads: under a temporary name first, in place only when whole.
#include <cerrno>
#include <chrono>
#include <thread>

#include "core/error.h"
#include "ftp_family.h"
#include "leftovers.h"

namespace TAVOCloud {
namespace {

constexpr std::chrono::milliseconds kLateFile{200};
constexpr int kMostStandstills = 2;

}  // namespace

// The place from which another attempt goes on: what has arrived.
bool FtpFamily::FindRestart(const std::string& temporary, Flow* flow, std::uint64_t* offset) {
  std::uint64_t arrived = 0;
  const Outcome outcome = connection_.Size(temporary, &arrived);
  if (outcome.code == CURLE_REMOTE_FILE_NOT_FOUND) arrived = 0;
  if (!outcome.ok() && outcome.code != CURLE_REMOTE_FILE_NOT_FOUND) return Fail(outcome);
  *offset = arrived <= flow->size() ? arrived : 0;
  return true;
}

bool FtpFamily::Send(const std::string& temporary, Flow* flow) {
  std::uint64_t before = 0;
  int standstills = 0;
  for (int attempt = 1;; ++attempt) {
    std::uint64_t offset = 0;
    Outcome outcome;
    if (attempt > 1) outcome = connection_.Open();
    if (outcome.ok()) {
      if (attempt > 1 && !FindRestart(temporary, flow, &offset)) return false;
      standstills = attempt > 1 && offset == before ? standstills + 1 : 0;
      before = offset;
      // It answers, but takes no more of the file: most likely its disk is full.
      if (standstills >= kMostStandstills) return Fail(EIO, core::kErrInputOutput);
      if (!flow->SeekTo(offset)) return Fail(EIO, core::kErrInputOutput);
      if (flow->size() == 0 || offset < flow->size()) {
        outcome = connection_.Upload(temporary, offset, flow);
      }
    }
    const Next next = Judge(outcome, flow, attempt);
    if (next != Next::kAgain) return next == Next::kDone;
  }
}

bool FtpFamily::Confirm(const std::string& path, const Flow& flow) {
  std::uint64_t arrived = 0;
  const Outcome outcome = connection_.Size(path, &arrived);
  if (!outcome.ok()) return Fail(outcome);
  return arrived == flow.size() || Fail(EIO, core::kErrInputOutput);
}

// Where a rename does not replace: the old file is put aside until the new one
// has its name, and comes back when that fails.
bool FtpFamily::Replace(const std::string& temporary, const std::string& target) {
  const std::string aside = AsidePathBeside(target);
  const Outcome moved = RunRename(target, aside);
  if (!moved.ok()) return Fail(moved);
  const Outcome outcome = RunRename(temporary, target);
  if (!outcome.ok()) {
    (void)RunRename(aside, target);
    return Fail(outcome);
  }
  (void)RemoveFile(aside);
  return true;
}

// What is left to do after a rename that did not go well.
bool FtpFamily::SettleRename(const Outcome& outcome, const std::string& temporary,
                             const std::string& target, const Flow& flow) {
  std::uint64_t size = 0;
  if (Explain(outcome).broken) {
    // Perhaps only the answer was lost.
    if (connection_.Size(temporary, &size).code != CURLE_REMOTE_FILE_NOT_FOUND) {
      return Fail(outcome);
    }
    return Confirm(target, flow);
  }
  if (sends_new_files() && outcome.code == CURLE_REMOTE_FILE_EXISTS) {
    return Fail(EEXIST, core::kErrExists);
  }
  if (!connection_.Size(target, &size).ok() || connection_.Folder(target).ok()) {
    return Fail(outcome);
  }
  if (sends_new_files()) return Fail(EEXIST, core::kErrExists);
  return Replace(temporary, target);
}

Outcome FtpFamily::RunPublish(const std::string& temporary, const std::string& target) {
  if (!sends_new_files()) return RunRename(temporary, target);
  std::uint64_t size = 0;
  if (!connection_.Size(target, &size).ok()) return RunRename(temporary, target);
  Outcome taken;
  taken.code = CURLE_REMOTE_FILE_EXISTS;
  return taken;
}

bool FtpFamily::Publish(const std::string& temporary, const std::string& target, Flow* flow) {
  bool whole = false;
  const FileFacts facts{flow->size(), sends_new_files() ? flow->ChangeTime() : 0,
                        sends_new_files()};
  Outcome outcome = connection_.RenameWhole(temporary, target, facts, &whole);
  if (!whole) {
    connection_.Watch(flow);
    whole = Confirm(temporary, *flow);
    connection_.Watch(nullptr);
    if (!whole) return false;
    outcome = RunPublish(temporary, target);
  }
  return outcome.ok() || SettleRename(outcome, temporary, target, *flow);
}

std::vector<std::string> FtpFamily::LeftoversIn(const std::string& folder) {
  LeftoverPicker picker;
  connection_.Hurry(true);
  (void)connection_.List(folder, &picker);
  connection_.Hurry(false);
  return picker.names();
}

// Keeps the reason of the failure that led here. A server that was told to stop
// may make the file a moment later.
void FtpFamily::Discard(const std::string& temporary, bool sent) {
  const int saved = errno;
  connection_.Hurry(true);
  if (!RemoveFile(temporary).ok() && !sent) {
    std::this_thread::sleep_for(kLateFile);
    (void)RemoveFile(temporary);
  }
  connection_.Hurry(false);
  errno = saved;
}

bool FtpFamily::Upload(const std::string& serverPath, int fd, std::uint64_t size,
                       ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  if (!CheckPath(serverPath)) return false;
  if (serverPath.back() == '/') return Fail(EISDIR, core::kErrFileExpected);
  Flow flow(fd, size, progress, cancel, readSize);
  const std::string temporary = UploadPathBeside(serverPath);
  connection_.Watch(&flow);
  RemoveLeftoversBeside(serverPath);
  const bool sent = Send(temporary, &flow);
  connection_.Watch(nullptr);
  if (sent && Publish(temporary, serverPath, &flow)) return true;
  if (flow.error() != 0) FailLocally(flow);
  Discard(temporary, sent);
  return false;
}

}  // namespace TAVOCloud
