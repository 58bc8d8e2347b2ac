// Logging in and out.
#include <iostream>
#include <string>

#include "host/cli/commands.h"
#include "host/cli/format.h"
#include "host/cli/interrupt.h"
#include "host/cli/refusal.h"
#include "host/cli/task_status.h"
#include "host/cli/token_store.h"

namespace cli {
namespace {

int Store(const std::string& token, const std::string& user, bool json) {
  const std::string path = TokenPath();
  std::string text;
  if (!StoreToken(path, token, &text)) return Refuse(text);
  if (json) {
    Json::Value result(Json::objectValue);
    result["stored"] = path;
    if (!user.empty()) result["user"] = user;
    std::cout << ToJsonLine(result) << std::endl;
  } else {
    std::cout << "Stored in " << Printable(path) << "." << std::endl;
  }
  return kExitDone;
}

int LoginByPassword(const ServerAddress& address, const Options& options) {
  Json::Value params(Json::objectValue);
  std::string password;
  std::string text;
  if (!AskForPassword(&password, &text)) return Interrupted() ? kExitStopped : Refuse(text);
  params["user"] = options.target;
  params["password"] = password;
  params["bearer"] = true;
  Client client(address, "");
  Json::Value data;
  CallError error;
  if (!client.Post("login", params, &data, &error)) return Refuse(error, "not logged in: ");
  const std::string token = TextOf(data, "token");
  if (!IsToken(token)) return Refuse("the server gave no token");
  return Store(token, TextOf(data, "user"), options.json);
}

}  // namespace

int RunLogin(const ServerAddress& address, const Options& options) {
  if (!options.target.empty()) return LoginByPassword(address, options);
  std::string token;
  std::string text;
  if (!AskForToken(&token, &text)) return Interrupted() ? kExitStopped : Refuse(text);
  Client client(address, token);
  Json::Value who;
  CallError error;
  if (!client.Get("whoami", {}, &who, &error)) {
    if (error.kind != CallError::Kind::kUnreachable) return Refuse(error, "not stored: ");
    std::cerr << "fennox: " << error.text << "; the token is stored unchecked\n";
  }
  return Store(token, TextOf(who, "user"), options.json);
}

int RunLogout(Client* client, const Options& options) {
  Json::Value params(Json::objectValue);
  params["all"] = options.everywhere;
  Json::Value data;
  CallError error;
  std::string text;
  // A session that the server no longer knows has ended as well, but ends no others.
  const bool ended = client->Post("logout", params, &data, &error) ||
                     (error.http_status == 401 && !options.everywhere);
  // Without an answer the token is still the way to end the others.
  if (!ended && options.everywhere) return Refuse(error, "not logged out: ");
  if (!ForgetToken(TokenPath(), &text)) return Refuse(text);
  if (!ended) return Refuse(error, "the token is forgotten, but the login goes on: ");
  if (options.json) {
    Json::Value result(Json::objectValue);
    result["ended"] = options.everywhere ? "all" : "this";
    std::cout << ToJsonLine(result) << std::endl;
  }
  return kExitDone;
}

}  // namespace cli
