// Calls of the server's HTTP interface.
#pragma once

#include <json/value.h>

#include <map>
#include <memory>
#include <string>

#include "host/cli/server_address.h"

namespace cli {

// Why a call gave no data.
struct CallError {
  enum class Kind {
    kUnreachable,  // no connection, or it broke: the call may have been carried out
    kHttp,         // the server refused it with an HTTP status
    kApi,          // the call's own error: code and detail
    kAnswer,       // not an answer of this interface
  };
  Kind kind = Kind::kUnreachable;
  int http_status = 0;
  int code = 0;
  Json::Value detail;
  std::string text;  // for people, without control characters

  // A later try of a call that changes nothing may succeed.
  bool Passing() const;
};

// One connection, kept open between calls. For one thread.
class Client {
 public:
  Client(const ServerAddress& address, const std::string& token);
  ~Client();
  Client(Client&&) noexcept;
  Client& operator=(Client&&) noexcept;

  // A method of the copy and move interface. Never sent twice.
  [[nodiscard]] bool Call(const std::string& method, const Json::Value& params, Json::Value* data,
                          CallError* error);

  // One of the server's own calls, "list", "tasks" and the like.
  [[nodiscard]] bool Get(const std::string& call,
                         const std::multimap<std::string, std::string>& query, Json::Value* data,
                         CallError* error);

  // The same for one that changes something. Never sent twice.
  [[nodiscard]] bool Post(const std::string& call, const Json::Value& params, Json::Value* data,
                          CallError* error);

 private:
  struct Connection;
  std::unique_ptr<Connection> connection_;
};

// Takes an answer apart. False with *error filled for everything but a success.
[[nodiscard]] bool ReadEnvelope(int http_status, const std::string& body, Json::Value* data,
                                CallError* error);

}  // namespace cli
