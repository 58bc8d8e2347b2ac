// Uploads: in one call, or in parts that become a file with the last one.
#include <algorithm>
#include <cerrno>

#include "core/error.h"
#include "dropbox.h"
#include "dropbox_hash.h"
#include "server_path.h"

namespace TAVOCloud {
namespace {

constexpr int kMostSessions = 3;

// False with the flow's error set.
bool ReadPart(Flow* flow, std::size_t length, std::string* part) {
  part->resize(length);
  for (std::size_t filled = 0; filled < length;) {
    const ssize_t got = flow->Get(part->data() + filled, length - filled);
    if (got <= 0) return false;
    filled += static_cast<std::size_t>(got);
  }
  return true;
}

// The file takes the place of another one, as the name of the call says.
Json::Value CommitTo(const std::string& path) {
  Json::Value commit(Json::objectValue);
  commit["path"] = path;
  commit["mode"] = "overwrite";
  commit["autorename"] = false;
  commit["mute"] = true;  // no message on the desktops of the account
  return commit;
}

}  // namespace

struct DropboxCloud::UploadSession {
  std::string path;
  std::string id;
  std::uint64_t offset = 0;  // of the part that is sent
  std::uint64_t size = 0;    // of the file
  DropboxHash hash;
  std::string whole;  // its hash, when all has been read
};

bool DropboxCloud::Confirm(const std::string& path, const Json::Value& metadata, const Flow& flow,
                           const std::string& hash) {
  if (TextIn(metadata, "content_hash") == hash && NumberIn(metadata, "size") == flow.size()) {
    return true;
  }
  const std::string version = TextIn(metadata, "rev");
  if (!version.empty()) Discard(path, version);
  return FailWithWords("what has arrived in the account is not what was sent");
}

bool DropboxCloud::SendWhole(const std::string& path, Flow* flow) {
  std::string data;
  if (!ReadPart(flow, flow->size(), &data)) return false;
  const std::string hash = DropboxHash::Of(data);
  Json::Value argument = CommitTo(path);
  argument["content_hash"] = hash;
  const DropboxAnswer answer =
      Persist([&](int) { return api_.Send("files/upload", argument, data); }, Again::kAfterAll);
  if (!answer.Succeeded()) return Fail(answer);
  return Confirm(path, answer.result, *flow, hash);
}

// Goes by what the service says has arrived: a part whose answer was lost is not sent
// twice.
DropboxAnswer DropboxCloud::SendPart(UploadSession* session, std::string_view data, bool last) {
  std::uint64_t arrived = 0;
  const auto send = [&] {
    const std::string_view rest = data.substr(arrived);
    Json::Value argument(Json::objectValue);
    argument["content_hash"] = DropboxHash::Of(rest);
    if (session->id.empty()) return api_.Send("files/upload_session/start", argument, rest);
    argument["cursor"]["session_id"] = session->id;
    argument["cursor"]["offset"] = Json::UInt64(session->offset + arrived);
    if (!last) return api_.Send("files/upload_session/append_v2", argument, rest);
    argument["commit"] = CommitTo(session->path);
    return api_.Send("files/upload_session/finish", argument, rest);
  };
  return Persist(
      [&](int) {
        for (;;) {
          DropboxAnswer answer = send();
          if (!answer.Says("incorrect_offset")) return answer;
          const Json::Value& error = answer.error;
          const std::uint64_t correct =
              std::max(NumberIn(error, "correct_offset"),
                       error.isObject() ? NumberIn(error["lookup_failed"], "correct_offset") : 0);
          // What came before has been confirmed, so less is as wrong as more.
          if (correct <= session->offset + arrived || correct > session->offset + data.size()) {
            return answer;
          }
          arrived = correct - session->offset;
          if (arrived < data.size() || last) continue;
          answer.response = 200;
          answer.tags.clear();
          return answer;
        }
      },
      Again::kAfterAll);
}

// When only the answer was lost, the session is gone and the file is there.
DropboxAnswer DropboxCloud::Finish(UploadSession* session, std::string_view data) {
  DropboxAnswer answer = SendPart(session, data, true);
  if (answer.Succeeded() || !answer.Says("lookup_failed")) return answer;
  DropboxAnswer there = Look(session->path);
  const bool done = there.Succeeded() && TextIn(there.result, "content_hash") == session->whole &&
                    NumberIn(there.result, "size") == session->size;
  return done ? there : answer;
}

bool DropboxCloud::SendInParts(const std::string& path, Flow* flow, bool* lost) {
  UploadSession session;
  session.path = path;
  session.size = flow->size();
  std::string data;
  DropboxAnswer answer;
  for (bool last = false; !last; session.offset += data.size()) {
    const std::uint64_t left = session.size - session.offset;
    if (!ReadPart(flow, std::min<std::uint64_t>(left, part_), &data)) return false;
    session.hash.Add(data);
    last = data.size() == left;
    if (last) session.whole = session.hash.Finish();
    answer = last ? Finish(&session, data) : SendPart(&session, data, false);
    if (!answer.Succeeded()) break;
    if (session.id.empty()) session.id = TextIn(answer.result, "session_id");
    if (session.id.empty()) return FailWithWords("the service's answer is not understood");
  }
  if (answer.Succeeded()) return Confirm(path, answer.result, *flow, session.whole);
  *lost = answer.Says("incorrect_offset") || answer.Says("closed") ||
          (answer.Says("not_found") && !answer.Says("path"));
  return *lost ? FailWithWords("the service has lost what was sent") : Fail(answer);
}

bool DropboxCloud::SendLarge(const std::string& path, Flow* flow) {
  for (int session = 1;; ++session) {
    bool lost = false;
    if (SendInParts(path, flow, &lost)) return true;
    const int saved = errno;
    const bool again = lost && session < kMostSessions && flow->SeekTo(0);
    errno = saved;
    if (!again) return false;
  }
}

bool DropboxCloud::Upload(const std::string& serverPath, int fd, std::uint64_t size,
                          ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  if (!CheckPath(serverPath)) return false;
  if (serverPath.back() == '/') return Fail(EISDIR, core::kErrFileExpected);
  if (!IsAcceptedSize(size)) return false;
  Flow flow(fd, size, progress, cancel, readSize);
  api_.curl().Watch(&flow);
  const bool sent = size <= part_ ? SendWhole(serverPath, &flow) : SendLarge(serverPath, &flow);
  api_.curl().Watch(nullptr);
  return sent || (flow.error() != 0 ? FailLocally(flow) : false);
}

}  // namespace TAVOCloud
