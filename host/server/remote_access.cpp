#include "remote_access.h"

#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/config.h"
#include "core/secret.h"
#include "core/user.h"
#include "core/user_list.h"
#include "support/text.h"
#include "vfs/mounts.h"

namespace host {
namespace {

// The text is "PROTOCOL://NAME" of the remote or a path below it.
bool Names(const Json::Value& text, const core::RemoteConfig& remote) {
  return (text.asString() + "/").starts_with(remote.protocol + "://" + remote.name + "/");
}

// The configured remotes that a parameter names and the user may use.
std::vector<const core::RemoteConfig*> RemotesOf(const Call& call) {
  std::vector<const core::RemoteConfig*> found;
  for (const core::RemoteConfig& remote : core::CurrentConfig().remotes) {
    const auto named = [&](const Json::Value& value) {
      const Json::Value texts = StringExplodeEx(value, ",", call.version, false);
      return std::any_of(texts.begin(), texts.end(),
                         [&](const Json::Value& text) { return Names(text, remote); });
    };
    const bool asked = call.api.empty() && call.method == "remote" &&
                       call.params["name"] == Json::Value(remote.name);
    if ((asked || std::any_of(call.params.begin(), call.params.end(), named)) &&
        core::IsUserListed(call.user, remote.users)) {
      found.push_back(&remote);
    }
  }
  return found;
}

// Only root reads what the user cannot.
void KeepSecretsOf(const core::RemoteConfig& remote) {
  if (::geteuid() != 0) return;
  for (const std::string* file : {&remote.password_file, &remote.key_file, &remote.token_file}) {
    if (!file->empty()) core::KeepSecret(*file);
  }
}

}  // namespace

void PrepareRemotesFor(const Call& call) {
  uid_t uid = 0;
  gid_t gid = 0;
  const auto remotes = RemotesOf(call);
  if (remotes.empty() || TAVOUserGetUGID(call.user.c_str(), &uid, &gid) != 0) return;
  for (const core::RemoteConfig* remote : remotes) {
    KeepSecretsOf(*remote);
    if (remote->mount == "auto") static_cast<void>(vfs::EnsureMounted(*remote, uid, gid));
  }
}

}  // namespace host
