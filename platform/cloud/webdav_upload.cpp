// Uploads and copies on the server: under a temporary name first, in place only when
// whole.
#include <cerrno>
#include <chrono>
#include <thread>

#include "core/error.h"
#include "leftovers.h"
#include "webdav.h"

namespace TAVOCloud {
namespace {

constexpr std::chrono::milliseconds kLateFile{200};
constexpr long kNotFound = 404;
constexpr long kTaken = 412;

}  // namespace

bool WebDav::Deliver(const std::string& temporary, Flow* flow) {
  HttpRequest request = session_.RequestFor("PUT", temporary);
  request.upload = flow;
  const WebDavAnswer answer = Persist([&](int) {
    if (flow->SeekTo(0)) return session_.Send(request);
    WebDavAnswer refusal;
    refusal.changed = true;
    refusal.words = "the source cannot be read a second time";
    return refusal;
  });
  if (flow->error() != 0) return FailLocally(*flow);
  return answer.Succeeded() || Fail(answer);
}

bool WebDav::Confirm(const std::string& path, std::uint64_t size) {
  DavEntry entry;
  const WebDavAnswer answer = Look(path, &entry);
  if (!answer.Succeeded()) return Fail(answer);
  return (!entry.folder && entry.size == size) || Fail(EIO, core::kErrInputOutput);
}

// Replacing is only asked for when there is something to replace, and it is a file.
WebDavAnswer WebDav::Place(const std::string& temporary, const std::string& target, bool* folder) {
  WebDavAnswer answer = Relocate("MOVE", temporary, target, Taken::kRefuse);
  if (!answer.ok() || answer.response != kTaken || sends_new_files()) return answer;
  DavEntry entry;
  WebDavAnswer look = LookOnce(target, &entry);
  if (!look.Succeeded() && look.response != kNotFound) return look;
  *folder = entry.folder;
  return entry.folder ? answer : Relocate("MOVE", temporary, target, Taken::kReplace);
}

bool WebDav::Publish(const std::string& temporary, const std::string& target, std::uint64_t size) {
  bool folder = false;
  bool lost = false;  // an answer that might have said that it was done
  const WebDavAnswer answer = Persist([&](int) {
    DavEntry entry;
    WebDavAnswer last = lost ? LookOnce(temporary, &entry) : WebDavAnswer();
    if (lost && !last.Succeeded()) return last;
    last = Place(temporary, target, &folder);
    lost = lost || !last.ok();
    return last;
  });
  if (answer.Succeeded()) return true;
  if (folder) return Fail(EISDIR, core::kErrFileExpected);
  if (sends_new_files() && answer.ok() && answer.response == kTaken) {
    return Fail(EEXIST, core::kErrExists);
  }
  if (lost && answer.ok() && answer.response == kNotFound) return Confirm(target, size);
  return Fail(answer);
}

std::vector<std::string> WebDav::LeftoversIn(const std::string& folder) {
  std::vector<DavEntry> entries;
  session_.curl().Hurry(true);
  (void)List(folder, "1", &entries);
  session_.curl().Hurry(false);
  std::vector<std::string> names;
  for (const DavEntry& entry : entries) {
    std::string name = entry.path.substr(entry.path.rfind('/') + 1);
    if (!entry.folder && IsAbandonedUpload(name)) names.push_back(std::move(name));
  }
  return names;
}

void WebDav::RemoveLeftover(const std::string& path) {
  (void)session_.Send(session_.RequestFor("DELETE", path));
}

// Keeps the reason of the failure that led here. A server that was told to stop may
// make the file a moment later.
void WebDav::Discard(const std::string& temporary, bool sent) {
  const int saved = errno;
  const HttpRequest request = session_.RequestFor("DELETE", temporary);
  session_.curl().Hurry(true);
  if (!session_.Send(request).Succeeded() && !sent) {
    std::this_thread::sleep_for(kLateFile);
    (void)session_.Send(request);
  }
  session_.curl().Hurry(false);
  errno = saved;
}

bool WebDav::Upload(const std::string& serverPath, int fd, std::uint64_t size, ProgressFn progress,
                    CancelFn cancel, ReadSizeFn readSize) {
  if (!CheckPath(serverPath)) return false;
  if (serverPath.back() == '/') return Fail(EISDIR, core::kErrFileExpected);
  Flow flow(fd, size, progress, cancel, readSize);
  const std::string temporary = UploadPathBeside(serverPath);
  session_.curl().Watch(&flow);
  RemoveLeftoversBeside(serverPath);
  const bool sent = Deliver(temporary, &flow) && Confirm(temporary, size);
  session_.curl().Watch(nullptr);
  if (sent && Publish(temporary, serverPath, size)) return true;
  if (flow.error() != 0) FailLocally(flow);
  Discard(temporary, sent);
  return false;
}

// The flow is watched until the copy is there.
bool WebDav::CopyFile(const std::string& from, const std::string& to, std::uint64_t size,
                      Flow* flow) {
  const std::string temporary = UploadPathBeside(to);
  RemoveLeftoversBeside(to);
  const WebDavAnswer answer = Persist([&](int attempt) {
    return Relocate("COPY", from, temporary, attempt > 1 ? Taken::kReplace : Taken::kRefuse);
  });
  const bool sent = answer.Succeeded() ? Confirm(temporary, size) : Fail(answer);
  session_.curl().Watch(nullptr);
  if (sent && Publish(temporary, to, size)) return true;
  if (flow->error() != 0) FailLocally(*flow);
  Discard(temporary, sent);
  return false;
}

bool WebDav::CopyOnServer(const std::string& from, const std::string& to) {
  if (!CheckPath(from) || !CheckPath(to)) return false;
  Flow flow = StopOnly();
  session_.curl().Watch(&flow);
  DavEntry source;
  WebDavAnswer answer = Look(from, &source);
  if (answer.Succeeded() && !source.folder && source.size) {
    return CopyFile(from, to, *source.size, &flow);
  }
  if (answer.Succeeded() && source.folder) {
    answer = Persist([&](int) { return Relocate("COPY", from, to, Taken::kRefuse); },
                     Again::kAfterRefusal);
  }
  session_.curl().Watch(nullptr);
  if (flow.error() != 0) return FailLocally(flow);
  if (!answer.Succeeded()) return Fail(answer);
  return source.folder || Fail(EIO, core::kErrInputOutput);
}

}  // namespace TAVOCloud
