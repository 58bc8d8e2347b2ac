// The commands themselves.
#pragma once

#include "host/cli/client.h"
#include "host/cli/options.h"

namespace cli {

// Each returns the program's exit status.
int RunTransfer(Client* client, const Options& options);
int RunStatus(Client* client, const Options& options);
int RunStop(Client* client, const Options& options);
int RunList(Client* client, const Options& options);
int RunLs(Client* client, const Options& options);
int RunTaskShow(Client* client, const Options& options);
int RunRemoteList(Client* client, const Options& options);
int RunRemoteCheck(Client* client, const Options& options);
int RunLog(Client* client, const Options& options);
int RunWatch(Client* client, const Options& options);
int RunLogin(const ServerAddress& address, const Options& options);
int RunLogout(Client* client, const Options& options);
int RunCompletePath(Client* client, const Options& options);

// The parameters of "start" for these options. False with words in *error when a
// path cannot be sent.
[[nodiscard]] bool StartParams(const Options& options, Json::Value* params, std::string* error);

}  // namespace cli
