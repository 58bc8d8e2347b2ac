// Uploads and copies on the server: under a temporary name first, in place only when
// whole.
#include <cerrno>
#include <chrono>
#include <thread>

#include "core/error.h"
#include "server_path.h"
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
  if (!answer.ok() || answer.response != kTaken) return answer;
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
  if (lost && answer.ok() && answer.response == kNotFound) return Confirm(target, size);
  return Fail(answer);
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
  const std::string temporary = TemporaryPathBeside(serverPath);
  session_.curl().Watch(&flow);
  const bool sent = Deliver(temporary, &flow) && Confirm(temporary, size);
  session_.curl().Watch(nullptr);
  if (sent && Publish(temporary, serverPath, size)) return true;
  if (flow.error() != 0) FailLocally(flow);
  Discard(temporary, sent);
  return false;
}

bool WebDav::CopyOnServer(const std::string& from, const std::string& to) {
  if (!CheckPath(from) || !CheckPath(to)) return false;
  DavEntry source;
  WebDavAnswer answer = Look(from, &source);
  if (!answer.Succeeded()) return Fail(answer);
  if (source.folder) {
    answer = Persist([&](int) { return Relocate("COPY", from, to, Taken::kRefuse); },
                     Again::kAfterRefusal);
    return answer.Succeeded() || Fail(answer);
  }
  if (!source.size) return Fail(EIO, core::kErrInputOutput);
  const std::string temporary = TemporaryPathBeside(to);
  answer = Persist([&](int attempt) {
    return Relocate("COPY", from, temporary, attempt > 1 ? Taken::kReplace : Taken::kRefuse);
  });
  const bool sent = answer.Succeeded() ? Confirm(temporary, *source.size) : Fail(answer);
  if (sent && Publish(temporary, to, *source.size)) return true;
  Discard(temporary, sent);
  return false;
}

}  // namespace TAVOCloud
