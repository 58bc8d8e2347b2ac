#include "servers.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

namespace {

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int FreePort() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Loopback(0);
  socklen_t length = sizeof address;
  int port = 0;
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
    port = ntohs(address.sin_port);
  }
  close(fd);
  return port;
}

pid_t Spawn(const std::vector<std::string>& command, bool tied) {
  std::vector<char*> args;
  args.reserve(command.size() + 1);
  for (const std::string& word : command) args.push_back(const_cast<char*>(word.c_str()));
  args.push_back(nullptr);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  if (tied) prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int null = open("/dev/null", O_RDWR);
  for (int fd = 0; fd < 3; ++fd) dup2(null, fd);
  execv(args[0], args.data());
  _exit(127);
}

std::multimap<pid_t, pid_t> Children() {
  std::multimap<pid_t, pid_t> children;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream file(entry.path() / "stat");
    std::string text;
    if (!std::getline(file, text)) continue;  // it has ended
    if (text.rfind(") ") == std::string::npos) continue;
    std::istringstream rest(text.substr(text.rfind(") ") + 4));
    pid_t parent = 0;
    if (rest >> parent) children.emplace(parent, std::stoi(name));
  }
  return children;
}

void Collect(const std::multimap<pid_t, pid_t>& children, pid_t parent, std::vector<pid_t>* found) {
  const auto [begin, end] = children.equal_range(parent);
  for (auto it = begin; it != end; ++it) {
    found->push_back(it->second);
    Collect(children, it->second, found);
  }
}

}  // namespace

int ConnectTo(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  close(fd);
  return -1;
}

void WriteFile(const std::filesystem::path& path, const std::string& text, unsigned mode) {
  std::ofstream(path) << text;
  std::filesystem::permissions(path, std::filesystem::perms(mode));
}

bool RunProgram(const std::vector<std::string>& command) {
  const pid_t pid = Spawn(command, false);
  int status = -1;
  return waitpid(pid, &status, 0) == pid && status == 0;
}

bool Server::Start() {
  port_ = FreePort();
  const std::vector<std::string> command = Command();
  if (command.empty() || access(command[0].c_str(), X_OK) != 0) return false;
  pid_ = Spawn(command, true);
  for (int i = 0; i < 200; ++i) {
    const int fd = ConnectTo(port_);
    if (fd >= 0) {
      close(fd);
      for (int j = 0; j < 100 && !Sessions().empty(); ++j) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
      return true;
    }
    if (waitpid(pid_, nullptr, WNOHANG) == pid_) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  pid_ = -1;
  return false;
}

std::vector<pid_t> Server::Sessions() const {
  std::vector<pid_t> found;
  if (pid_ > 0) Collect(Children(), pid_, &found);
  return found;
}

void Server::EndSessions() const {
  for (const pid_t pid : Sessions()) kill(pid, SIGKILL);
}

void Server::Stop() {
  if (pid_ <= 0) return;
  kill(pid_, SIGSTOP);  // no new session while they are ended
  EndSessions();
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

std::vector<std::string> SshServer::Command() {
  for (const char* key : {"host_key", "user_key"}) {
    const std::string path = folder_ / key;
    if (!std::filesystem::exists(path) &&
        !RunProgram({"/usr/bin/ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", path})) {
      return {};
    }
  }
  if (geteuid() == 0) std::filesystem::create_directories("/run/sshd");
  std::ifstream key(folder_ / "host_key.pub");
  std::string type;
  std::string text;
  key >> type >> text;
  WriteFile(folder_ / "known_hosts",
            "[127.0.0.1]:" + std::to_string(port_) + " " + type + " " + text + "\n");
  std::ostringstream config;
  config << "Port " << port_ << "\nListenAddress 127.0.0.1\nHostKey " << folder_ / "host_key"
         << "\nAuthorizedKeysFile " << folder_ / "user_key.pub"
         << "\nPidFile none\nStrictModes no\nUsePAM no\nPermitRootLogin yes\n"
            "PasswordAuthentication yes\nSubsystem sftp internal-sftp\n"
         << options_;
  WriteFile(folder_ / "sshd_config", config.str());
  return {"/usr/sbin/sshd", "-D", "-e", "-f", folder_ / "sshd_config"};
}

core::RemoteConfig SshServer::Remote() const {
  core::RemoteConfig remote;
  remote.name = "server";
  remote.protocol = "sftp";
  remote.host = "127.0.0.1";
  remote.port = port_;
  remote.connect_timeout = 2;  // a lost server is given up within about a second
  const passwd* user = getpwuid(geteuid());
  remote.user = user == nullptr ? "nobody" : user->pw_name;
  remote.key_file = folder_ / "user_key";
  remote.known_hosts = folder_ / "known_hosts";
  return remote;
}

std::vector<std::string> FtpServer::Command() {
  std::ostringstream config;
  config << "listen=YES\nlisten_address=127.0.0.1\nlisten_port=" << port_
         << "\npasv_address=127.0.0.1\nbackground=NO\nseccomp_sandbox=NO\n"
            "run_as_launching_user=YES\nlocal_enable=NO\nanonymous_enable=YES\nwrite_enable=YES\n"
            "anon_upload_enable=YES\nanon_mkdir_write_enable=YES\nanon_other_write_enable=YES\n"
            "anon_world_readable_only=NO\nanon_umask=022\nxferlog_enable=NO\n"
            "secure_email_list_enable=YES\nanon_root="
         << folder_.string() << "\nemail_password_file=" << (folder_ / "password").string() << "\n";
  WriteFile(folder_ / "password", "s3cret word\n");
  if (tls_) {
    const std::string pem = folder_ / "server.pem";
    if (!std::filesystem::exists(pem) &&
        !RunProgram({"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days",
                     "2", "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1",
                     "-keyout", folder_ / "server.key", "-out", pem})) {
      return {};
    }
    config << "ssl_enable=YES\nallow_anon_ssl=YES\nforce_anon_data_ssl=YES\n"
              "force_anon_logins_ssl=YES\nrequire_ssl_reuse=YES\nssl_ciphers=HIGH\n"
           << "rsa_cert_file=" << pem
           << "\nrsa_private_key_file=" << (folder_ / "server.key").string() << "\n";
  }
  config << options_;
  WriteFile(folder_ / "vsftpd.conf", config.str());
  return {"/usr/sbin/vsftpd", folder_ / "vsftpd.conf"};
}

core::RemoteConfig FtpServer::Remote() const {
  core::RemoteConfig remote;
  remote.name = "server";
  remote.protocol = tls_ ? "ftps" : "ftp";
  remote.host = "127.0.0.1";
  remote.port = port_;
  remote.connect_timeout = 2;  // a lost server is given up within about a second
  remote.user = "ftp";
  remote.password_file = folder_ / "password";
  if (tls_) remote.ca_file = folder_ / "server.pem";
  return remote;
}
