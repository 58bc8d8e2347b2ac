// Throw-away servers on loopback ports, ended with their sessions.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "core/config.h"

// A server program of this machine, serving the folder it is given as the user
// who runs the test.
class Server {
 public:
  explicit Server(const std::filesystem::path& folder) : folder_(folder) {}
  virtual ~Server() { Stop(); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // False when the program is not installed or does not come up.
  bool Start();
  void Stop();
  // Ends the connections that stand, not the server.
  void EndSessions() const;
  std::vector<pid_t> Sessions() const;
  int port() const { return port_; }

  // How to reach it.
  virtual core::RemoteConfig Remote() const = 0;

 protected:
  virtual std::vector<std::string> Command() = 0;
  const std::filesystem::path folder_;
  int port_ = 0;

 private:
  pid_t pid_ = -1;
};

// OpenSSH's sshd with a host key and a user key of its own.
class SshServer : public Server {
 public:
  using Server::Server;
  core::RemoteConfig Remote() const override;
  void set_options(const std::string& lines) { options_ = lines; }

 protected:
  std::vector<std::string> Command() override;

 private:
  std::string options_;
};

// vsftpd, with TLS and a certificate of its own when asked. The user is "ftp",
// the password is in the folder's file "password".
class FtpServer : public Server {
 public:
  FtpServer(const std::filesystem::path& folder, bool tls) : Server(folder), tls_(tls) {}
  core::RemoteConfig Remote() const override;
  void set_options(const std::string& lines) { options_ = lines; }

 protected:
  std::vector<std::string> Command() override;

 private:
  bool tls_;
  std::string options_;
};

void WriteFile(const std::filesystem::path& path, const std::string& text, unsigned mode = 0600);
// Runs a program to its end; true when it says that all went well.
bool RunProgram(const std::vector<std::string>& command);
// A connected socket, -1 without one.
int ConnectTo(int port);
