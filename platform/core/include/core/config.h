// The server's configuration: one TOML file, read once at start-up.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace core {

// One [[share]]: a local folder under a name.
struct ShareConfig {
  std::string name;                    // first component of its paths, "/NAME/rest"
  std::string path;                    // absolute path of the folder
  std::vector<std::string> read{"*"};  // users, "@group" or "*"
  std::vector<std::string> write;      // the same; whoever may write may read
  int restrictions = 0;                // sum of the Restriction values
  std::string code_page = "UTF-8";     // character set of names
};

enum Restriction : int {
  kNoChange = 1,    // "no-change": what is there may not be replaced
  kNoDelete = 2,    // "no-delete"
  kNoDownload = 4,  // "no-download": nothing may be read out
};

// One [[remote]]: a mount reached over a protocol.
struct RemoteConfig {
  std::string name;
  std::string protocol;  // "sftp", "ftp", "ftps", "webdav", "webdavs", "dropbox"
  std::string host;      // empty for "dropbox" alone
  int port = 0;          // 0: the protocol's own
  std::string user;
  // Absolute paths, or empty; the first three hold secrets and are for their owner's eyes.
  std::string password_file;
  std::string key_file;                 // sftp: private key
  std::string token_file;               // dropbox
  std::string known_hosts;              // sftp: the keys of servers
  std::string ca_file;                  // TLS: the authorities to trust instead of the system's
  std::string path = "/";               // the folder on the server that the mount shows
  std::string code_page = "UTF-8";      // character set of names there
  int max_connections = 0;              // 0: the server decides
  int connect_timeout = 15;             // seconds
  std::string mount = "auto";           // or the absolute path of a folder mounted already
  std::vector<std::string> users{"*"};  // who may use it
};

// One [[token]]: a bearer token that the administrator issued to a user. With at
// least one of them the server has several users and makes no token of its own.
struct TokenConfig {
  std::string user;
  std::string file;  // absolute path; readable by its owner only
};

struct ServerConfig {
  std::string listen = "127.0.0.1:5050";
  std::string state;            // absolute path of the state folder
  std::string auth = "single";  // or "pam"
  std::string certificate;      // with `key`: TLS
  std::string key;
  // With several users: the account that the HTTP side runs as.
  std::string run_as = "nobody";
  std::string metrics;  // ADDRESS:PORT for figures about the server; empty: none
};

// [login]: logins with system accounts, and how long any login lasts.
struct LoginConfig {
  std::string service = "fennox";  // PAM service
  std::string service_folder;      // absolute path of its file's folder; empty: the system's
  int min_uid = 1000;              // accounts below it are the system's own and stay out
  int idle_hours = 24;             // an unused session ends
  int max_hours = 24 * 7;          // any session ends
};

// [limits]: what one caller may ask of the server.
struct LimitsConfig {
  int header_seconds = 15;        // for a request's head, from its first byte
  int body_seconds = 60;          // for its body
  int requests_per_second = 200;  // of one user, on average
  int requests_at_once = 32;      // of one user
};

struct Config {
  ServerConfig server;
  LoginConfig login;
  LimitsConfig limits;
  std::vector<ShareConfig> shares;
  std::vector<RemoteConfig> remotes;
  std::vector<TokenConfig> tokens;
  std::uint64_t bandwidth_default = 0;  // bytes a second and user; 0: no limit
  // Settings of [copymove] as texts, by key, for TavoConf.
  std::vector<std::pair<std::string, std::string>> copymove;
  int finished_tasks_hours = 24;
};

// Reads and checks a configuration file. Unknown keys, wrong types, bad values,
// doubled and reserved names ("home") are errors. False on failure, and *err
// says file, line and key in words.
[[nodiscard]] bool LoadConfig(const std::string& file, Config* out, std::string* err);

// The checks of LoadConfig alone, for a configuration put together from the
// command line.
[[nodiscard]] bool CheckConfig(const Config& config, std::string* err);

// Reads an amount such as "20MB", "1.5 GiB", "512k", "0" as bytes: k, M, G and T
// count by thousands, Ki, Mi, Gi and Ti by 1024, letter case aside. Parts of a
// byte are dropped.
[[nodiscard]] bool ParseByteAmount(const std::string& text, std::uint64_t* out);

// The process's configuration. SetConfig is called once, before any thread or
// child is started; CurrentConfig is an empty configuration before that.
void SetConfig(Config config);
const Config& CurrentConfig();

// Folder that holds one user's records, index, log and accounting:
// STATE/users/NAME, mode 0700, owned by that user. Empty when the name cannot
// be a file name.
std::string UserStateFolder(const std::string& user);

// Makes that folder (and STATE/users) when missing. As root it is given to
// uid:gid; otherwise it belongs to the caller. False with errno set on failure.
[[nodiscard]] bool EnsureUserStateFolder(const std::string& user, unsigned uid, unsigned gid);

}  // namespace core
