#include "remote_calls.h"

#include <json/value.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "cloud/cloud.h"
#include "core/config.h"
#include "core/user_list.h"
#include "envelope.h"
#include "support/errors.h"
#include "vfs/mounts.h"
#include "vfs/vfs.h"

namespace host {
namespace {

std::string BaseUri(const core::RemoteConfig& remote) {
  return remote.protocol + "://" + remote.name + "/";
}

Json::Value RemoteValue(const core::RemoteConfig& remote) {
  vfs::MountInfo mount;
  Json::Value value(Json::objectValue);
  value["name"] = remote.name;
  value["path"] = BaseUri(remote);
  value["protocol"] = remote.protocol;
  value["mounted"] = vfs::FindBySharePath(BaseUri(remote), &mount);
  return value;
}

// A library's words that name no known reason are told apart by its errno.
vfs::Trouble TroubleFrom(const std::string& words, int err) {
  using vfs::TroubleKind;
  vfs::Trouble trouble = vfs::TroubleFromWords(words.empty() ? std::strerror(err) : words);
  const bool vague =
      trouble.kind == TroubleKind::kOther || trouble.kind == TroubleKind::kUnreachable;
  if (vague && err == ECONNREFUSED) trouble.kind = TroubleKind::kRefused;
  if (vague && err == ETIMEDOUT) trouble.kind = TroubleKind::kTimedOut;
  return trouble;
}

// Logs in as a transfer does, and looks for the base folder.
vfs::Trouble CheckConnection(const core::RemoteConfig& remote) {
  const std::unique_ptr<TAVOCloud::Cloud> server(
      TAVOCloud::Utils::CreateCloudByURI(::geteuid(), BaseUri(remote), 1));
  if (server == nullptr) return {};  // is used through its mount alone
  std::string words;
  errno = 0;
  if (!server->Connect(&words)) return TroubleFrom(words, errno);
  std::uint64_t size = 0;
  bool folder = false;
  if (remote.path == "/" || (server->Stat(remote.path, &size, &folder) && folder)) return {};
  return {vfs::TroubleKind::kNoFolder, remote.path + " is no folder on the server"};
}

vfs::Trouble Check(const core::RemoteConfig& remote) {
  if (vfs::Trouble trouble = vfs::TroubleOf(BaseUri(remote))) return trouble;
  vfs::MountInfo mount;
  if (!vfs::FindBySharePath(BaseUri(remote), &mount)) {
    return {vfs::TroubleKind::kNotAvailable, "mount: " + remote.mount + " is no folder"};
  }
  return CheckConnection(remote);
}

}  // namespace

std::string RemotesText(const Call& call) {
  Json::Value list(Json::arrayValue);
  for (const core::RemoteConfig& remote : core::CurrentConfig().remotes) {
    if (core::IsUserListed(call.user, remote.users)) list.append(RemoteValue(remote));
  }
  return SuccessText(list);
}

std::string RemoteText(const Call& call) {
  const Json::Value& name = call.params["name"];
  if (!name.isString()) return FailureWords(WEBFM_BAD_PARAMETER, "\"name\" is missing");
  const auto& remotes = core::CurrentConfig().remotes;
  const auto remote = std::find_if(remotes.begin(), remotes.end(), [&](const auto& candidate) {
    return candidate.name == name.asString() && core::IsUserListed(call.user, candidate.users);
  });
  if (remote == remotes.end()) return FailureWords(WEBFM_NO_SHARE, "there is no such remote");
  const vfs::Trouble trouble = Check(*remote);
  Json::Value value = RemoteValue(*remote);
  value["ready"] = !trouble;
  value["problem"] = vfs::NameOf(trouble.kind);
  value["words"] = trouble.words;
  return SuccessText(value);
}

}  // namespace host
