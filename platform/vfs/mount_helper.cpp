#include "mount_helper.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "core/secret.h"
#include "core/unique_fd.h"
#include "helper_process.h"

namespace vfs {
namespace {

constexpr int kImplicitTlsPort = 990;
constexpr int kObscureSeconds = 10;
constexpr int kLeastConcurrency = 6;
// One call on the mount may take four requests, and all of them have to be over within
// about a minute when the server hangs. A disk that has to start turning takes some of it.
constexpr int kAnswerSeconds = 15;

Trouble Lacks(const std::string& words) { return {TroubleKind::kNotAvailable, words}; }

bool HasProgram(const std::string& name) {
  std::istringstream folders(kProgramPath);
  std::string folder;
  while (std::getline(folders, folder, ':')) {
    if (access(folder.append("/").append(name).c_str(), X_OK) == 0) return true;
  }
  return false;
}

Trouble CheckMachine(const std::string& helper) {
  if (!HasProgram(helper)) return Lacks(helper + " is not installed");
  const core::UniqueFd fuse(open("/dev/fuse", O_RDWR | O_CLOEXEC));
  if (!fuse) return Lacks(std::string("FUSE is not available: /dev/fuse: ") + strerror(errno));
  return {};
}

Trouble ReadPassword(const core::RemoteConfig& remote, std::string* password) {
  std::string err;
  if (!core::ReadSecretFile(remote.password_file, password, &err)) return Lacks(err);
  password->resize(std::min(password->find_first_of("\r\n"), password->size()));
  return {};
}

// A word in OpenSSH's configuration. The client replaces "%x" in paths.
std::string SshWord(const std::string& text, bool path) {
  std::string word = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') word += '\\';
    if (c == '%' && path) word += '%';
    word += c;
  }
  return word + '"';
}

std::string SshSettings(const core::RemoteConfig& remote) {
  std::ostringstream text;
  text << "HostName " << remote.host << "\nUser " << SshWord(remote.user, false)
       << "\nUserKnownHostsFile " << SshWord(remote.known_hosts, true)
       << "\nGlobalKnownHostsFile /dev/null\nStrictHostKeyChecking yes\nUpdateHostKeys no"
          "\nIdentitiesOnly yes\nIdentityAgent none\nConnectionAttempts 1"
          "\nServerAliveInterval 5\nServerAliveCountMax 2\nNumberOfPasswordPrompts 1"
          "\nControlPath none\nForwardAgent no\nForwardX11 no\nPermitLocalCommand no"
          "\nLogLevel ERROR\nConnectTimeout "
       << remote.connect_timeout << '\n';
  if (remote.port != 0) text << "Port " << remote.port << '\n';
  if (remote.key_file.empty()) {
    text << "IdentityFile none\nPreferredAuthentications password,keyboard-interactive\n";
  } else {
    text << "IdentityFile " << SshWord(remote.key_file, true)
         << "\nPreferredAuthentications publickey\nBatchMode yes\n";
  }
  return text.str();
}

std::string MountOptions(const MountOrder& order) {
  std::string options =
      "default_permissions,umask=077,nosuid,nodev,uid=" + std::to_string(order.uid) +
      ",gid=" + std::to_string(order.gid);
  // Without it nobody but the helper's own user can enter.
  if (geteuid() == 0) options += ",allow_other";
  return options;
}

Trouble PrepareSshfs(const core::RemoteConfig& remote, const MountOrder& order, Program* program) {
  if (access(remote.known_hosts.c_str(), R_OK) != 0) {
    return {TroubleKind::kHostKey,
            "known_hosts: " + (remote.known_hosts.empty()
                                   ? "is needed for sftp"
                                   : remote.known_hosts + ": " + strerror(errno))};
  }
  const std::string settings = order.scratch + "/ssh_config";
  std::ofstream(settings, std::ios::trunc) << SshSettings(remote);
  // The kernel and the helper remember nothing: transfers change the server's files past
  // them.
  program->arguments = {"sshfs",
                        "-f",
                        "-F",
                        settings,
                        "-o",
                        MountOptions(order) +
                            ",reconnect,dir_cache=no,attr_timeout=0,entry_timeout=0,"
                            "negative_timeout=0,ac_attr_timeout=0,fsname=fennox",
                        "server:" + remote.path,
                        order.folder};
  program->environment = {std::string("PATH=") + kProgramPath, "HOME=/", "LC_ALL=C.UTF-8"};
  if (!remote.key_file.empty() || remote.password_file.empty()) return {};
  program->arguments.insert(program->arguments.begin() + 1, {"-o", "password_stdin"});
  Trouble trouble = ReadPassword(remote, &program->input);
  program->input += '\n';
  return trouble;
}

// The password in the form that the helper takes, made by the helper itself.
Trouble ObscuredPassword(const core::RemoteConfig& remote, std::string* obscured) {
  Program obscure{{"rclone", "obscure", "-"},
                  {std::string("PATH=") + kProgramPath, "HOME=/", "RCLONE_CONFIG="},
                  {}};
  if (Trouble trouble = ReadPassword(remote, &obscure.input)) return trouble;
  if (!RunProgram(obscure, kObscureSeconds, obscured)) return Lacks("rclone does not work");
  obscured->resize(std::min(obscured->find_first_of("\r\n"), obscured->size()));
  return {};
}

std::string PercentEncoded(const std::string& path) {
  constexpr const char* kHex = "0123456789ABCDEF";
  std::string text;
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (isalnum(byte) != 0 || strchr("-._~/", c) != nullptr) {
      text += c;
    } else {
      text += {'%', kHex[byte >> 4U], kHex[byte & 0x0FU]};
    }
  }
  return text;
}

std::string UrlOf(const core::RemoteConfig& remote) {
  const bool bare_ipv6 = remote.host.find(':') != std::string::npos && remote.host[0] != '[';
  std::string url = remote.protocol == "webdavs" ? "https://" : "http://";
  url += bare_ipv6 ? "[" + remote.host + "]" : remote.host;
  if (remote.port != 0) url += ":" + std::to_string(remote.port);
  return url + PercentEncoded(remote.path);
}

// What the back end is told, and what of it is to be mounted.
std::string BackEnd(const core::RemoteConfig& remote, const std::string& password,
                    std::vector<std::string>* environment) {
  const bool ftp = remote.protocol == "ftp" || remote.protocol == "ftps";
  const std::string prefix = ftp ? "RCLONE_FTP_" : "RCLONE_WEBDAV_";
  const auto set = [&](const char* name, const std::string& value) {
    environment->push_back(prefix + name + "=" + value);
  };
  set("USER", remote.user);
  set("PASS", password);
  // Names as they stand on the server, whatever their bytes.
  set("ENCODING", "Slash");
  if (!ftp) {
    set("URL", UrlOf(remote));
    set("VENDOR", "other");
    return ":webdav:";
  }
  set("HOST", remote.host);
  if (remote.port != 0) set("PORT", std::to_string(remote.port));
  set("WRITING_MDTM", "true");
  // Some servers leave hidden files out of a listing unless they are asked for: a copy
  // would miss them, and a move's temporary names would be taken for lost.
  set("FORCE_LIST_HIDDEN", "true");
  // It waits for connections of its own that it does not give back meanwhile: with
  // fewer it would wait for ever.
  if (remote.max_connections >= kLeastConcurrency) {
    set("CONCURRENCY", std::to_string(remote.max_connections));
  }
  if (remote.protocol == "ftps") {
    set(remote.port == kImplicitTlsPort ? "TLS" : "EXPLICIT_TLS", "true");
    // Servers that want a session resumed on data connections get it up to TLS 1.2.
    set("DISABLE_TLS13", "true");
  }
  return ":ftp:" + remote.path;
}

Trouble PrepareRclone(const core::RemoteConfig& remote, const MountOrder& order, Program* program) {
  std::string password;
  if (!remote.password_file.empty()) {
    if (Trouble trouble = ObscuredPassword(remote, &password)) return trouble;
  }
  program->environment = {std::string("PATH=") + kProgramPath, "HOME=/",
                          "RCLONE_CONFIG=", "RCLONE_CACHE_DIR=" + order.scratch};
  if (!remote.ca_file.empty()) {
    program->environment.push_back("SSL_CERT_FILE=" + remote.ca_file);
    program->environment.emplace_back("SSL_CERT_DIR=/nonexistent");
  }
  // Reading opens a file again as often as it reads it again: with two attempts, that is a
  // minute per call on a server that hangs.
  const bool ftp = remote.protocol == "ftp" || remote.protocol == "ftps";
  const std::string source = BackEnd(remote, password, &program->environment);
  const std::string timeout = std::to_string(remote.connect_timeout) + "s";
  // No cache of writes: what is written must be on the server when it is reported so.
  program->arguments = {"rclone",
                        "mount",
                        source,
                        order.folder,
                        "--vfs-cache-mode=off",
                        "--dir-cache-time=" + std::to_string(kListingMilliseconds) + "ms",
                        "--attr-timeout=0s",
                        "--poll-interval=0",
                        "--default-permissions",
                        "--uid=" + std::to_string(order.uid),
                        "--gid=" + std::to_string(order.gid),
                        "--umask=077",
                        "--contimeout=" + timeout,
                        "--timeout=" + std::to_string(kAnswerSeconds) + "s",
                        std::string("--low-level-retries=") + (ftp ? "1" : "2"),
                        "--log-level=ERROR"};
  if (geteuid() == 0) program->arguments.emplace_back("--allow-other");
  program->forgets = true;
  return {};
}

}  // namespace

Trouble PrepareHelper(const core::RemoteConfig& remote, const MountOrder& order, Program* program) {
  if (remote.protocol == "dropbox") {
    return Lacks("dropbox cannot be mounted automatically: set `mount` to a mounted folder");
  }
  const bool sftp = remote.protocol == "sftp";
  if (Trouble trouble = CheckMachine(sftp ? "sshfs" : "rclone")) return trouble;
  return sftp ? PrepareSshfs(remote, order, program) : PrepareRclone(remote, order, program);
}

}  // namespace vfs
