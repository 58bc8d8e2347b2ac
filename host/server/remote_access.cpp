#include "remote_access.h"

#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/config.h"
#include "core/secret.h"
#include "core/user_list.h"
#include "support/text.h"

namespace host {
namespace {

// Names the user's remote, as "PROTOCOL://NAME" or a path below it.
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
    if (std::any_of(call.params.begin(), call.params.end(), named) &&
        core::IsUserListed(call.user, remote.users)) {
      found.push_back(&remote);
    }
  }
  return found;
}

}  // namespace

void KeepSecretsFor(const Call& call) {
  if (::geteuid() != 0) return;
  for (const core::RemoteConfig* remote : RemotesOf(call)) {
    for (const std::string* file :
         {&remote->password_file, &remote->key_file, &remote->token_file}) {
      if (!file->empty()) core::KeepSecret(*file);
    }
  }
}

}  // namespace host
