// The throw-away servers of tests/servers, started as programs.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "core/config.h"

class ServerProgram {
 public:
  ServerProgram() = default;
  ~ServerProgram() { Close(); }
  ServerProgram(const ServerProgram&) = delete;
  ServerProgram& operator=(const ServerProgram&) = delete;

  // `program` is one in tests/servers. False when the server cannot run here.
  bool Start(const std::string& program, const std::vector<std::string>& options);
  // Ends it, mid-transfer or not, with no good-bye.
  void Stop();
  // Ends it as its program does; another may be started.
  void Close();
  // Breaks the connections that stand; the server goes on.
  void EndSessions() const;
  // Processes that serve connections.
  std::vector<pid_t> Sessions() const;

  // How to reach it.
  const core::RemoteConfig& remote() const { return remote_; }
  // The folder with its configuration, keys and logs; there as long as this object.
  std::filesystem::path own() const;

 private:
  bool ReadFacts(int fd);

  pid_t program_ = -1;
  pid_t server_ = -1;
  int input_ = -1;
  core::RemoteConfig remote_;
};
