#include "config_check.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <set>
#include <string_view>

#include "core/utf8.h"

namespace core {
namespace {

using Words = std::optional<std::string>;  // what is wrong with a value

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

bool HasControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
}

Words CheckName(const std::string& name) {
  constexpr std::size_t kMaxComponent = 255;
  if (name.empty()) return "a name is needed";
  if (name == "." || name == ".." || name.find('/') != std::string::npos || HasControl(name) ||
      name.size() > kMaxComponent || !IsUtf8(name)) {
    return Quoted(name) + " cannot be the name of a folder";
  }
  return std::nullopt;
}

Words CheckAbsolute(const std::string& path) {
  if (path.empty() || path[0] != '/' || path.find('\0') != std::string::npos) {
    return Quoted(path) + " is not an absolute path";
  }
  return std::nullopt;
}

Words CheckOptionalAbsolute(const std::string& path) {
  return path.empty() ? std::nullopt : CheckAbsolute(path);
}

Words CheckCodePage(const std::string& name) {
  // An empty name means the locale's set, which is no fact about the folder.
  bool known = !name.empty() && !HasControl(name);
  if (known) {
    const iconv_t converter = iconv_open("UTF-8", name.c_str());
    known = reinterpret_cast<std::intptr_t>(converter) != -1;
    if (known) iconv_close(converter);
  }
  if (!known) return Quoted(name) + " is not a known character set";
  return std::nullopt;
}

Words CheckUsers(const std::vector<std::string>& users) {
  for (const auto& user : users) {
    if (user.empty() || user == "@" || HasControl(user)) {
      return Quoted(user) + " is neither a user, an \"@group\" nor \"*\"";
    }
  }
  return std::nullopt;
}

Words CheckListen(const std::string& listen) {
  constexpr unsigned kMaxPort = 65535;
  const auto colon = listen.rfind(':');
  unsigned port = 0;
  bool good = colon != std::string::npos && colon > 0 && colon + 1 < listen.size();
  if (good) {
    const char* end = listen.data() + listen.size();
    const auto [rest, error] = std::from_chars(listen.data() + colon + 1, end, port);
    good = error == std::errc() && rest == end && port <= kMaxPort;
  }
  const std::string host = good ? listen.substr(0, colon) : "";
  const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  good = good && !HasControl(host) && host.find_first_of(" /@") == std::string::npos &&
         (bracketed || host.find(':') == std::string::npos);
  if (!good) return Quoted(listen) + " is not HOST:PORT";
  return std::nullopt;
}

// A text that becomes part of a helper's command line must not look like an
// option.
Words CheckPlainWord(const std::string& text, std::string_view forbidden) {
  if (HasControl(text) || text.starts_with('-') ||
      text.find_first_of(forbidden) != std::string::npos) {
    return Quoted(text) + " holds characters that are not allowed here";
  }
  return std::nullopt;
}

// Collects the first fault of one table.
class TableCheck {
 public:
  TableCheck(std::string table, std::size_t index) : table_(std::move(table)), index_(index) {}

  void Key(const char* key, Words words) {
    if (words && !fault_) fault_ = ConfigFault{table_, index_, key, std::move(*words)};
  }
  void Require(const char* key, bool holds, const char* words) {
    if (!holds) Key(key, words);
  }
  std::optional<ConfigFault> Fault() const { return fault_; }

 private:
  std::string table_;
  std::size_t index_;
  std::optional<ConfigFault> fault_;
};

Words CheckMetrics(const std::string& address) {
  if (address.empty()) return std::nullopt;
  if (auto words = CheckListen(address)) return words;
  const std::string host = address.substr(0, address.rfind(':'));
  // What the server does is nobody's business beyond this machine.
  if (host == "localhost" || host == "[::1]" || host.starts_with("127.")) return std::nullopt;
  return Quoted(address) + " is not an address of this machine alone, such as 127.0.0.1:9105";
}

std::optional<ConfigFault> CheckServer(const ServerConfig& server) {
  TableCheck check("server", 0);
  check.Key("listen", CheckListen(server.listen));
  check.Require("state", !server.state.empty(), "a state folder is needed");
  check.Key("state", CheckAbsolute(server.state));
  check.Require("auth", server.auth == "single" || server.auth == "pam",
                R"(must be "single" or "pam")");
  check.Key("certificate", CheckOptionalAbsolute(server.certificate));
  check.Key("key", CheckOptionalAbsolute(server.key));
  check.Require(server.key.empty() ? "key" : "certificate",
                server.key.empty() == server.certificate.empty(),
                "certificate and key are needed together");
  check.Require("run_as", !server.run_as.empty() && !HasControl(server.run_as),
                "the account that the HTTP side runs as is needed");
  check.Key("metrics", CheckMetrics(server.metrics));
  return check.Fault();
}

std::optional<ConfigFault> CheckLogin(const LoginConfig& login) {
  constexpr int kMaxHours = 24 * 365;
  TableCheck check("login", 0);
  check.Key("service", CheckPlainWord(login.service, "/"));
  check.Require("service", !login.service.empty(), "the name of a PAM service is needed");
  check.Key("service_folder", CheckOptionalAbsolute(login.service_folder));
  check.Require("min_uid", login.min_uid >= 1, "must be 1 or more: root never logs in");
  check.Require("idle_hours", login.idle_hours >= 1 && login.idle_hours <= kMaxHours,
                "must be 1 to 8760");
  check.Require("max_hours", login.max_hours >= 1 && login.max_hours <= kMaxHours,
                "must be 1 to 8760");
  return check.Fault();
}

std::optional<ConfigFault> CheckLimits(const LimitsConfig& limits) {
  constexpr int kMaxSeconds = 3600;
  constexpr int kMaxRate = 100000;
  TableCheck check("limits", 0);
  check.Require("header_seconds",
                limits.header_seconds >= 1 && limits.header_seconds <= kMaxSeconds,
                "must be 1 to 3600");
  check.Require("body_seconds", limits.body_seconds >= 1 && limits.body_seconds <= kMaxSeconds,
                "must be 1 to 3600");
  check.Require("requests_per_second",
                limits.requests_per_second >= 1 && limits.requests_per_second <= kMaxRate,
                "must be 1 to 100000");
  check.Require("requests_at_once",
                limits.requests_at_once >= 1 && limits.requests_at_once <= kMaxRate,
                "must be 1 to 100000");
  return check.Fault();
}

std::optional<ConfigFault> CheckShare(const ShareConfig& share, std::size_t index) {
  TableCheck check("share", index);
  check.Key("name", CheckName(share.name));
  check.Require("name", share.name != "home", R"("home" is the users' own area)");
  check.Key("path", CheckAbsolute(share.path));
  check.Key("read", CheckUsers(share.read));
  check.Key("write", CheckUsers(share.write));
  constexpr int kAll = kNoChange | kNoDelete | kNoDownload;
  check.Require("restrict", (share.restrictions & ~kAll) == 0, "unknown restriction");
  check.Key("code_page", CheckCodePage(share.code_page));
  return check.Fault();
}

bool KnownProtocol(const std::string& protocol) {
  constexpr std::array<std::string_view, 6> kProtocols = {"sftp",   "ftp",     "ftps",
                                                          "webdav", "webdavs", "dropbox"};
  return std::find(kProtocols.begin(), kProtocols.end(), protocol) != kProtocols.end();
}

std::optional<ConfigFault> CheckRemote(const RemoteConfig& remote, std::size_t index) {
  constexpr int kMaxPort = 65535;
  TableCheck check("remote", index);
  check.Key("name", CheckName(remote.name));
  check.Require("protocol", KnownProtocol(remote.protocol),
                R"(must be "sftp", "ftp", "ftps", "webdav", "webdavs" or "dropbox")");
  check.Require("host", remote.protocol == "dropbox" || !remote.host.empty(),
                "the server's name or address is needed");
  check.Key("host", CheckPlainWord(remote.host, " /@\\\"'"));
  check.Require("port", remote.port >= 0 && remote.port <= kMaxPort, "must be 0 to 65535");
  check.Key("user", CheckPlainWord(remote.user, ""));
  check.Key("password_file", CheckOptionalAbsolute(remote.password_file));
  check.Key("key_file", CheckOptionalAbsolute(remote.key_file));
  check.Key("token_file", CheckOptionalAbsolute(remote.token_file));
  check.Key("known_hosts", CheckOptionalAbsolute(remote.known_hosts));
  check.Key("ca_file", CheckOptionalAbsolute(remote.ca_file));
  check.Key("path", CheckAbsolute(remote.path));
  check.Key("code_page", CheckCodePage(remote.code_page));
  check.Require("max_connections", remote.max_connections >= 0, "must not be negative");
  check.Require("connect_timeout", remote.connect_timeout >= 1 && remote.connect_timeout <= 30,
                "must be 1 to 30 seconds");
  check.Require("mount", remote.protocol != "dropbox" || remote.mount != "auto",
                "dropbox is not mounted by the server: give the path of a folder that is mounted");
  check.Key("mount", remote.mount == "auto" ? std::nullopt : CheckAbsolute(remote.mount));
  check.Key("users", CheckUsers(remote.users));
  return check.Fault();
}

std::optional<ConfigFault> CheckToken(const TokenConfig& token, std::size_t index) {
  TableCheck check("token", index);
  check.Require("user", !token.user.empty(), "the user whom the token stands for is needed");
  check.Require("user", !HasControl(token.user), "is not a user's name");
  check.Key("file", CheckAbsolute(token.file));
  return check.Fault();
}

template <typename Entry>
std::optional<ConfigFault> CheckNamed(const char* table, const std::vector<Entry>& entries,
                                      std::optional<ConfigFault> (*check)(const Entry&,
                                                                          std::size_t)) {
  std::set<std::string> names;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (auto fault = check(entries[i], i)) return fault;
    if (!names.insert(entries[i].name).second) {
      return ConfigFault{table, i, "name", Quoted(entries[i].name) + " is already in use"};
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<ConfigFault> FindConfigFault(const Config& config) {
  if (auto fault = CheckServer(config.server)) return fault;
  if (auto fault = CheckLogin(config.login)) return fault;
  if (auto fault = CheckLimits(config.limits)) return fault;
  if (auto fault = CheckNamed("share", config.shares, CheckShare)) return fault;
  if (auto fault = CheckNamed("remote", config.remotes, CheckRemote)) return fault;
  for (std::size_t i = 0; i < config.tokens.size(); ++i) {
    if (auto fault = CheckToken(config.tokens[i], i)) return fault;
  }
  if (config.finished_tasks_hours < kMinFinishedHours ||
      config.finished_tasks_hours > kMaxFinishedHours) {
    return ConfigFault{"copymove", 0, "finished_tasks_hours", "must be 1 to 87600"};
  }
  return std::nullopt;
}

bool CheckConfig(const Config& config, std::string* err) {
  const auto fault = FindConfigFault(config);
  if (!fault) return true;
  *err = "[" + fault->table + "] ";
  if (fault->table == "share") *err += Quoted(config.shares[fault->index].name) + " ";
  if (fault->table == "remote") *err += Quoted(config.remotes[fault->index].name) + " ";
  *err += fault->key + ": " + fault->words;
  return false;
}

}  // namespace core
