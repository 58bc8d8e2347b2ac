// fennox: copies and moves on a Fennox server from the command line.
#include <csignal>
#include <cstdlib>
#include <exception>

#include "host/cli/client.h"
#include "host/cli/commands.h"
#include "host/cli/format.h"
#include "host/cli/options.h"
#include "host/cli/refusal.h"
#include "host/cli/server_address.h"
#include "host/cli/token_store.h"

namespace {

constexpr const char* kDefaultUrl = "http://127.0.0.1:5050";

std::string Environment(const char* name, const char* fallback) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : fallback;
}

bool FindToken(std::string* token, std::string* error) {
  *token = Environment("FENNOX_TOKEN", "");
  if (token->empty()) return cli::ReadToken(cli::TokenPath(), token, error);
  if (cli::IsToken(*token)) return true;
  *error = "FENNOX_TOKEN holds no token";
  return false;
}

int Run(cli::Client* client, const cli::Options& options) {
  switch (options.command) {
    case cli::Command::kCopy:
    case cli::Command::kMove:
      return cli::RunTransfer(client, options);
    case cli::Command::kStatus:
      return cli::RunStatus(client, options);
    case cli::Command::kStop:
      return cli::RunStop(client, options);
    case cli::Command::kList:
      return cli::RunList(client, options);
    case cli::Command::kLs:
      return cli::RunLs(client, options);
    case cli::Command::kTaskShow:
      return cli::RunTaskShow(client, options);
    case cli::Command::kRemoteList:
      return cli::RunRemoteList(client, options);
    case cli::Command::kRemoteCheck:
      return cli::RunRemoteCheck(client, options);
    case cli::Command::kWatch:
      return cli::RunWatch(client, options);
    case cli::Command::kLog:
      return cli::RunLog(client, options);
    case cli::Command::kLogout:
      return cli::RunLogout(client, options);
    case cli::Command::kCompletePath:
      return cli::RunCompletePath(client, options);
    case cli::Command::kLogin:
      break;  // needs no client: handled before there is a token
  }
  return cli::kExitRefused;
}

int Main(int argc, char** argv) {
  cli::Options options;
  if (const auto status = cli::ParseOptions(argc, argv, &options)) return *status;
  if (options.json) cli::ReportRefusalsAsJson();
  // A closed connection or pipe is an error of the call, not the program's end.
  std::signal(SIGPIPE, SIG_IGN);
  cli::ServerAddress address;
  std::string error;
  std::string token;
  if (!cli::ParseServerUrl(Environment("FENNOX_URL", kDefaultUrl), &address, &error)) {
    return cli::Refuse("FENNOX_URL: " + error);
  }
  if (options.command == cli::Command::kLogin) return cli::RunLogin(address, options);
  if (!FindToken(&token, &error)) return cli::Refuse(cli::Printable(error));
  cli::Client client(address, token);
  return Run(&client, options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& e) {
    return cli::Refuse(e.what());
  }
}
