// fennox: copies and moves on a Fennox server from the command line.
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "host/cli/client.h"
#include "host/cli/commands.h"
#include "host/cli/format.h"
#include "host/cli/options.h"
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
      return cli::RunLogout(client);
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
  // A closed connection or pipe is an error of the call, not the program's end.
  std::signal(SIGPIPE, SIG_IGN);
  cli::ServerAddress address;
  std::string error;
  std::string token;
  if (!cli::ParseServerUrl(Environment("FENNOX_URL", kDefaultUrl), &address, &error)) {
    std::cerr << "fennox: FENNOX_URL: " << error << "\n";
    return cli::kExitRefused;
  }
  if (options.command == cli::Command::kLogin) return cli::RunLogin(address, options);
  if (!FindToken(&token, &error)) {
    std::cerr << "fennox: " << cli::Printable(error) << "\n";
    return cli::kExitRefused;
  }
  cli::Client client(address, token);
  return Run(&client, options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "fennox: " << e.what() << "\n";
    return cli::kExitRefused;
  }
}
