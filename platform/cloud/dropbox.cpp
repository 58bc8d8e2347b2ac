#include "dropbox.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include "core/error.h"
#include "core/utf8.h"
#include "dropbox_failure.h"
#include "leftovers.h"
#include "retry.h"
#include "server_path.h"

namespace TAVOCloud {
namespace {

// What one upload session may hold.
constexpr std::uint64_t kLargestFile = 350'000'000'000;

// The API's root folder is the empty path, and no path ends with a slash.
std::string ApiPath(std::string path) {
  while (!path.empty() && path.back() == '/') path.pop_back();
  return path;
}

bool IsRoot(const std::string& path) { return ApiPath(path).empty(); }

bool IsFolder(const Json::Value& metadata) { return TextIn(metadata, ".tag") == "folder"; }

Json::Value PathArgument(const std::string& path) {
  Json::Value argument(Json::objectValue);
  argument["path"] = ApiPath(path);
  return argument;
}

// A member of what the service tells of a call.
Json::Value MetadataOf(const DropboxAnswer& answer) {
  return answer.result.isObject() ? answer.result["metadata"] : Json::Value();
}

}  // namespace

DropboxCloud::DropboxCloud(const core::RemoteConfig& remote, const std::string& serverId,
                           std::size_t part)
    : ServerCloud(serverId, "dropbox.cpp"), api_(remote), part_(part) {}

bool DropboxCloud::Fail(const DropboxAnswer& answer) {
  return Fail(ExplainDropbox(answer), WordsOf(answer));
}

bool DropboxCloud::FailWithWords(const char* words) {
  return Fail(Failure{EIO, core::kErrInputOutput, errorCode_, false}, words);
}

bool DropboxCloud::CheckPath(const std::string& path) {
  return ServerCloud::CheckPath(path) &&
         (core::IsUtf8(path) || Fail(EILSEQ, core::kErrIllegalName));
}

DropboxAnswer DropboxCloud::Persist(const Call& call, Again again) {
  return SendUntilOver(call, again, ExplainDropbox, api_.curl());
}

// The service tells nothing of its root folder but what is in it.
DropboxAnswer DropboxCloud::Look(const std::string& path) {
  if (IsRoot(path)) {
    DropboxAnswer answer = List(path);
    answer.result = Json::Value(Json::objectValue);
    answer.result[".tag"] = "folder";
    return answer;
  }
  return Persist([&](int) { return api_.Ask("files/get_metadata", PathArgument(path)); },
                 Again::kAfterAll);
}

// Its first entries: enough to see whether there are any.
DropboxAnswer DropboxCloud::List(const std::string& folder) {
  Json::Value argument = PathArgument(folder);
  argument["limit"] = 1;
  return Persist([&](int) { return api_.Ask("files/list_folder", argument); }, Again::kAfterAll);
}

bool DropboxCloud::Connect(std::string* err) {
  errorCode_ = 0;
  const std::string base = api_.remote().path.empty() ? "/" : api_.remote().path;
  const DropboxAnswer answer = Look(base);
  if (answer.Succeeded() && IsFolder(answer.result)) return true;
  if (err != nullptr) *err = answer.Succeeded() ? "is not a folder: " + base : WordsOf(answer);
  return answer.Succeeded() ? Fail(ENOTDIR, core::kErrFolderExpected) : Fail(answer);
}

bool DropboxCloud::IsIgnoredPath(const std::string& sourcePath) {
  if (sourcePath.find("/.dropbox.cache/") != std::string::npos) return true;
  const std::string name = sourcePath.substr(sourcePath.rfind('/') + 1);
  return name == ".dropbox" || name == ".dropbox.attr" || name == ".dropbox.cache";
}

bool DropboxCloud::IsAcceptedSize(std::uint64_t bytes) {
  return bytes <= kLargestFile || Fail(EFBIG, core::kErrTooLarge);
}

bool DropboxCloud::Stat(const std::string& serverPath, std::uint64_t* size, bool* folder) {
  if (!CheckPath(serverPath)) return false;
  const DropboxAnswer answer = Look(serverPath);
  if (!answer.Succeeded()) return Fail(answer);
  *folder = IsFolder(answer.result);
  *size = *folder ? 0 : NumberIn(answer.result, "size");
  if (!*folder && TextIn(answer.result, ".tag") != "file") {
    return FailWithWords("the service's answer is not understood");
  }
  return *folder || serverPath.back() != '/' || Fail(ENOTDIR, core::kErrFolderExpected);
}

bool DropboxCloud::MakeFolder(const std::string& serverPath) {
  if (!CheckPath(serverPath)) return false;
  Json::Value argument = PathArgument(serverPath);
  argument["autorename"] = false;
  const DropboxAnswer answer = Persist(
      [&](int) { return api_.Ask("files/create_folder_v2", argument); }, Again::kAfterRefusal);
  if (answer.Succeeded()) return true;
  (void)Fail(answer);
  return answer.Says("folder") ? Fail(EEXIST, core::kErrExists) : false;
}

bool DropboxCloud::Remove(const std::string& serverPath) {
  if (!CheckPath(serverPath)) return false;
  if (IsRoot(serverPath)) return Fail(EACCES, core::kErrNotPermitted);
  DropboxAnswer answer = Look(serverPath);
  if (!answer.Succeeded()) return Fail(answer);
  if (IsFolder(answer.result)) {
    // The call would take all that is in it along.
    answer = List(serverPath);
    if (!answer.Succeeded()) return Fail(answer);
    const Json::Value& entries = answer.result["entries"];
    if (!entries.isArray() || !entries.empty() || answer.result["has_more"] != false) {
      return Fail(ENOTEMPTY, core::kErrExists);
    }
  }
  answer = Persist([&](int) { return api_.Ask("files/delete_v2", PathArgument(serverPath), true); },
                   Again::kAfterRefusal);
  return answer.Succeeded() || Fail(answer);
}

// Keeps the reason of the failure that led here. With a version, only that one.
void DropboxCloud::Discard(const std::string& path, const std::string& version) {
  const int saved = errno;
  Json::Value argument = PathArgument(path);
  if (!version.empty()) argument["parent_rev"] = version;
  api_.curl().Hurry(true);
  (void)api_.Ask("files/delete_v2", argument);
  api_.curl().Hurry(false);
  errno = saved;
}

DropboxAnswer DropboxCloud::Move(const std::string& from, const std::string& to) {
  Json::Value argument(Json::objectValue);
  argument["from_path"] = ApiPath(from);
  argument["to_path"] = ApiPath(to);
  argument["autorename"] = false;
  return Persist([&](int) { return api_.Ask("files/move_v2", argument, true); },
                 Again::kAfterRefusal);
}

bool DropboxCloud::IsSame(const std::string& one, const std::string& other) {
  const std::string id = TextIn(Look(one).result, "id");
  return !id.empty() && id == TextIn(Look(other).result, "id");
}

// The service does not change the case of a name only.
bool DropboxCloud::MoveThrough(const std::string& from, const std::string& to) {
  const std::string between = AsidePathBeside(ApiPath(to));
  DropboxAnswer answer = Move(from, between);
  if (!answer.Succeeded()) return Fail(answer);
  answer = Move(between, to);
  if (answer.Succeeded()) return true;
  (void)Move(between, from);
  return Fail(answer);
}

bool DropboxCloud::Rename(const std::string& from, const std::string& to) {
  if (!CheckPath(from) || !CheckPath(to)) return false;
  const DropboxAnswer answer = Move(from, to);
  if (answer.Succeeded()) return true;
  if (!answer.Says("conflict")) return Fail(answer);
  if (ApiPath(from) != ApiPath(to) && IsSame(from, to)) return MoveThrough(from, to);
  (void)Fail(answer);
  return answer.Says("file_ancestor") ? false : Fail(EEXIST, core::kErrExists);
}

// The old file is put aside until the new one has its name, and comes back when that
// fails.
bool DropboxCloud::Replace(const std::string& temporary, const std::string& to) {
  const std::string id = TextIn(Look(temporary).result, "id");
  const std::string aside = AsidePathBeside(to);
  DropboxAnswer answer = Move(to, aside);
  if (!answer.Succeeded()) return Fail(answer);
  answer = Move(temporary, to);
  // Perhaps only the answer was lost.
  if (!answer.Succeeded() && (id.empty() || TextIn(Look(to).result, "id") != id)) {
    (void)Move(aside, to);
    return Fail(answer);
  }
  Discard(aside, {});
  return true;
}

// In the first part of the folder's listing, which is all of most.
std::vector<std::string> DropboxCloud::LeftoversIn(const std::string& folder) {
  std::vector<std::string> names;
  api_.curl().Hurry(true);
  const DropboxAnswer answer = api_.Ask("files/list_folder", PathArgument(folder));
  api_.curl().Hurry(false);
  if (!answer.Succeeded() || !answer.result["entries"].isArray()) return names;
  for (const Json::Value& entry : answer.result["entries"]) {
    std::string name = TextIn(entry, "name");
    if (!IsFolder(entry) && IsAbandonedUpload(name)) names.push_back(std::move(name));
  }
  return names;
}

bool DropboxCloud::Place(const std::function<DropboxAnswer(const std::string& to)>& copy,
                         const std::string& to) {
  if (to.back() == '/') return Fail(EISDIR, core::kErrFileExpected);
  Flow flow = StopOnly();
  const auto copy_to = [&](const std::string& place) {
    api_.curl().Watch(&flow);
    DropboxAnswer answer = Persist([&](int) { return copy(place); }, Again::kAfterRefusal);
    api_.curl().Watch(nullptr);
    return answer;
  };
  DropboxAnswer answer = copy_to(to);
  if (answer.Succeeded()) return true;
  if (flow.error() != 0) return FailLocally(flow);
  if (!answer.Says("conflict") || !answer.Says("file")) return Fail(answer);
  RemoveLeftoversBeside(to);
  const std::string temporary = UploadPathBeside(to);
  answer = copy_to(temporary);
  if (flow.error() != 0) {
    Discard(temporary, {});
    return FailLocally(flow);
  }
  if (!answer.Succeeded()) return Fail(answer);
  const bool folder = IsFolder(MetadataOf(answer));
  if (!folder && Replace(temporary, to)) return true;
  Discard(temporary, {});
  return folder ? Fail(ENOTDIR, core::kErrFolderExpected) : false;
}

bool DropboxCloud::CopyOnServer(const std::string& from, const std::string& to) {
  if (!CheckPath(from) || !CheckPath(to)) return false;
  Json::Value argument(Json::objectValue);
  argument["from_path"] = ApiPath(from);
  argument["autorename"] = false;
  return Place(
      [&](const std::string& place) {
        argument["to_path"] = place;
        return api_.Ask("files/copy_v2", argument, true);
      },
      to);
}

bool DropboxCloud::CopyFromAccount(DropboxCloud* source, const std::string& from,
                                   const std::string& to) {
  if (!source->CheckPath(from) || !CheckPath(to)) return false;
  const DropboxAnswer got = source->Persist(
      [&](int) { return source->api_.Ask("files/copy_reference/get", PathArgument(from)); },
      Again::kAfterAll);
  if (!got.Succeeded()) return source->Fail(got);
  Json::Value argument(Json::objectValue);
  argument["copy_reference"] = TextIn(got.result, "copy_reference");
  return Place(
      [&](const std::string& place) {
        argument["path"] = place;
        return api_.Ask("files/copy_reference/save", argument, true);
      },
      to);
}

}  // namespace TAVOCloud
