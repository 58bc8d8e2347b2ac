#include "webdav.h"

#include <cerrno>

#include "core/error.h"
#include "retry.h"
#include "server_path.h"
#include "webdav_receiver.h"

namespace TAVOCloud {
namespace {

constexpr long kMultistatus = 207;
constexpr long kNotOffered = 405;
constexpr long kFailedDependency = 424;
constexpr long kFirstError = 400;

constexpr const char* kQuestion =
    R"(<?xml version="1.0" encoding="utf-8"?><D:propfind xmlns:D="DAV:"><D:prop>)"
    "<D:resourcetype/><D:getcontentlength/></D:prop></D:propfind>";

void Misunderstand(const char* words, WebDavAnswer* answer) {
  answer->code = CURLE_WEIRD_SERVER_REPLY;
  answer->words = words;
}

}  // namespace

WebDav::WebDav(const core::RemoteConfig& remote, const std::string& serverId)
    : ServerCloud(serverId, "webdav.cpp"), session_(remote) {}

std::unique_ptr<ServerCloud> WebDav::Another() const {
  return std::make_unique<WebDav>(session_.remote(), serverId_);
}

bool WebDav::Fail(const WebDavAnswer& answer) {
  return Fail(ExplainWebDav(answer), WordsOf(answer));
}

WebDavAnswer WebDav::Persist(const Call& call, Again again) {
  return SendUntilOver(call, again, ExplainWebDav, session_.curl());
}

WebDavAnswer WebDav::List(const std::string& path, const char* depth,
                          std::vector<DavEntry>* entries) {
  HttpRequest request = session_.RequestFor("PROPFIND", path);
  request.headers = {std::string("Depth: ") + depth, "Content-Type: application/xml"};
  request.body = kQuestion;
  WebDavAnswer answer = session_.Send(request);
  if (!answer.Succeeded()) return answer;
  if (answer.response != kMultistatus) {
    answer.response = kNotOffered;  // a server of another kind, whatever it says
    return answer;
  }
  auto found = ReadMultistatus(answer.text);
  if (found) {
    *entries = std::move(*found);
  } else {
    Misunderstand("the server's answer cannot be understood", &answer);
  }
  return answer;
}

WebDavAnswer WebDav::LookOnce(const std::string& path, DavEntry* entry) {
  std::vector<DavEntry> entries;
  WebDavAnswer answer = List(path, "0", &entries);
  if (!answer.Succeeded()) return answer;
  const DavEntry* found = EntryOf(entries, path);
  if (found == nullptr) {
    Misunderstand("the server's answer is about something else", &answer);
  } else if (found->status >= kFirstError) {
    answer.response = found->status;
  } else {
    *entry = *found;
  }
  return answer;
}

WebDavAnswer WebDav::Look(const std::string& path, DavEntry* entry) {
  return Persist([&](int) { return LookOnce(path, entry); });
}

WebDavAnswer WebDav::Change(const HttpRequest& request) {
  WebDavAnswer answer = session_.Send(request);
  if (answer.response != kMultistatus || !answer.ok()) return answer;
  const auto parts = ReadMultistatus(answer.text);
  if (!parts) {
    Misunderstand("the server's answer cannot be understood", &answer);
    return answer;
  }
  for (const DavEntry& part : *parts) {
    if (part.status < kFirstError) continue;
    answer.response = part.status;
    if (part.status != kFailedDependency) break;
  }
  return answer;
}

WebDavAnswer WebDav::Relocate(const char* method, const std::string& from, const std::string& to,
                              Taken taken) {
  HttpRequest request = session_.RequestFor(method, from);
  request.headers = {"Destination: " + session_.UrlOf(to),
                     taken == Taken::kReplace ? "Overwrite: T" : "Overwrite: F"};
  request.slow = true;
  return Change(request);
}

bool WebDav::Connect(std::string* err) {
  errorCode_ = 0;
  const std::string base = session_.remote().path.empty() ? "/" : session_.remote().path;
  DavEntry entry;
  const WebDavAnswer answer = Look(base, &entry);
  if (answer.Succeeded() && entry.folder) return true;
  if (err != nullptr) *err = answer.Succeeded() ? "is not a folder: " + base : WordsOf(answer);
  return answer.Succeeded() ? Fail(ENOTDIR, core::kErrFolderExpected) : Fail(answer);
}

// These servers make no files by themselves, and leave sizes to their disks.
bool WebDav::IsIgnoredPath(const std::string& /*sourcePath*/) { return false; }
bool WebDav::IsAcceptedSize(std::uint64_t /*bytes*/) { return true; }

bool WebDav::Stat(const std::string& serverPath, std::uint64_t* size, bool* folder) {
  if (!CheckPath(serverPath)) return false;
  DavEntry entry;
  const WebDavAnswer answer = Look(serverPath, &entry);
  if (!answer.Succeeded()) return Fail(answer);
  if (!entry.folder && !entry.size) return Fail(EIO, core::kErrInputOutput);
  *size = entry.folder ? 0 : *entry.size;
  *folder = entry.folder;
  return true;
}

bool WebDav::MakeFolder(const std::string& serverPath) {
  if (!CheckPath(serverPath)) return false;
  const HttpRequest request = session_.RequestFor("MKCOL", serverPath);
  const WebDavAnswer answer = Persist([&](int) { return Change(request); }, Again::kAfterRefusal);
  if (answer.Succeeded()) return true;
  (void)Fail(answer);
  if (!answer.ok() || answer.response != kNotOffered) return false;
  return Fail(EEXIST, core::kErrExists);  // how they say that the name is taken
}

bool WebDav::Remove(const std::string& serverPath) {
  if (!CheckPath(serverPath)) return false;
  DavEntry entry;
  WebDavAnswer answer = Look(serverPath, &entry);
  if (!answer.Succeeded()) return Fail(answer);
  if (entry.folder) {
    // The request would take all that is in it along.
    std::vector<DavEntry> entries;
    answer = Persist([&](int) { return List(serverPath, "1", &entries); });
    if (!answer.Succeeded()) return Fail(answer);
    if (entries.size() != 1) return Fail(ENOTEMPTY, core::kErrExists);
  }
  const HttpRequest request = session_.RequestFor("DELETE", serverPath);
  answer = Persist([&](int) { return Change(request); }, Again::kAfterRefusal);
  return answer.Succeeded() || Fail(answer);
}

bool WebDav::Rename(const std::string& from, const std::string& to) {
  if (!CheckPath(from) || !CheckPath(to)) return false;
  const WebDavAnswer answer = Persist(
      [&](int) { return Relocate("MOVE", from, to, Taken::kRefuse); }, Again::kAfterRefusal);
  return answer.Succeeded() || Fail(answer);
}

bool WebDav::Download(const std::string& serverPath, int fd, std::uint64_t size,
                      ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  if (!CheckPath(serverPath)) return false;
  Flow flow(fd, size, progress, cancel, readSize);
  flow.WriteApart();
  session_.curl().Watch(&flow);
  const bool received = Receive(serverPath, &flow);
  session_.curl().Watch(nullptr);
  return received;
}

bool WebDav::Receive(const std::string& path, Flow* flow) {
  WebDavReceiver receiver(flow);
  HttpRequest request = session_.RequestFor("GET", path);
  request.take = [&](const HttpAnswer& begun, std::string_view data) {
    return receiver.Take(begun, data);
  };
  WebDavAnswer answer = Persist([&](int) {
    WebDavAnswer last;
    if (receiver.Begin()) {
      request.headers = receiver.Headers();
      last = session_.Send(request);
    }
    last.changed = !receiver.words().empty();
    if (last.changed) last.words = receiver.words();
    return last;
  });
  if (!flow->Flush() || flow->error() != 0) return FailLocally(*flow);
  if (!answer.Succeeded()) return Fail(answer);
  // Its size has changed since the caller looked.
  return flow->moved() == flow->size() || Fail(EIO, core::kErrInputOutput);
}

}  // namespace TAVOCloud
