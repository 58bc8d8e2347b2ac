#define TOML_EXCEPTIONS 0
#define TOML_HEADER_ONLY 1
#define TOML_ENABLE_FORMATTERS 0
#include <fcntl.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <limits>
#include <string>

#include "config_check.h"
#include "core/config.h"
#include "core/unique_fd.h"

namespace core {
namespace {

// Fills a Config from a parsed file and keeps the first error.
class Reader {
 public:
  Reader(const std::string& file, const toml::table& root) : file_(file), root_(root) {}

  bool Read(Config* out) {
    Known(root_, "", {"server", "share", "remote", "bandwidth", "copymove"});
    if (const auto* server = Table("server")) ReadServer(*server, &out->server);
    for (const auto* table : Tables("share")) ReadShare(*table, &out->shares.emplace_back());
    for (const auto* table : Tables("remote")) ReadRemote(*table, &out->remotes.emplace_back());
    if (const auto* bandwidth = Table("bandwidth")) ReadBandwidth(*bandwidth, out);
    if (const auto* copymove = Table("copymove")) ReadCopyMove(*copymove, out);
    if (error_.empty()) {
      if (const auto fault = FindConfigFault(*out)) Report(*fault);
    }
    return error_.empty();
  }

  const std::string& error() const { return error_; }

 private:
  void Fail(const toml::source_region& where, const std::string& key, const std::string& words) {
    if (!error_.empty()) return;
    error_ = file_ + ":" + std::to_string(where.begin.line) + ": " + key + ": " + words;
  }

  // Places a fault at its key, or at its table when the key is not there.
  void Report(const ConfigFault& fault) {
    const toml::node* node = root_.get(fault.table);
    if (const auto* array = node == nullptr ? nullptr : node->as_array()) {
      node = array->get(fault.index);
    }
    const auto* table = node == nullptr ? nullptr : node->as_table();
    const auto* value = table == nullptr ? nullptr : table->get(fault.key);
    if (value != nullptr) node = value;
    Fail(node == nullptr ? root_.source() : node->source(), fault.table + "." + fault.key,
         fault.words);
  }

  const toml::table* Table(const char* name) {
    const toml::node* node = root_.get(name);
    if (node == nullptr) return nullptr;
    if (node->is_table()) return node->as_table();
    Fail(node->source(), name, std::string("must be a table, [") + name + "]");
    return nullptr;
  }

  std::vector<const toml::table*> Tables(const char* name) {
    std::vector<const toml::table*> tables;
    const toml::node* node = root_.get(name);
    if (node == nullptr) return tables;
    const toml::array* array = node->as_array();
    if (array == nullptr) {
      Fail(node->source(), name, std::string("must be written as [[") + name + "]]");
      return tables;
    }
    for (const toml::node& item : *array) {
      if (item.is_table()) {
        tables.push_back(item.as_table());
      } else {
        Fail(item.source(), name, std::string("must be written as [[") + name + "]]");
      }
    }
    return tables;
  }

  void Known(const toml::table& table, const std::string& prefix,
             std::initializer_list<std::string_view> keys) {
    for (const auto& [key, value] : table) {
      if (std::find(keys.begin(), keys.end(), key.str()) != keys.end()) continue;
      Fail(key.source(), prefix + std::string(key.str()), "unknown key");
    }
  }

  void Text(const toml::table& table, const std::string& prefix, const char* key,
            std::string* out) {
    const toml::node* node = table.get(key);
    if (node == nullptr) return;
    if (const auto* value = node->as_string()) {
      *out = value->get();
    } else {
      Fail(node->source(), prefix + key, "must be a text in quotes");
    }
  }

  void Whole(const toml::table& table, const std::string& prefix, const char* key, int* out) {
    const toml::node* node = table.get(key);
    if (node == nullptr) return;
    const auto* value = node->as_integer();
    if (value == nullptr) {
      Fail(node->source(), prefix + key, "must be a whole number");
    } else if (value->get() < std::numeric_limits<int>::min() ||
               value->get() > std::numeric_limits<int>::max()) {
      Fail(node->source(), prefix + key, "is out of range");
    } else {
      *out = static_cast<int>(value->get());
    }
  }

  void Texts(const toml::table& table, const std::string& prefix, const char* key,
             std::vector<std::string>* out) {
    const toml::node* node = table.get(key);
    if (node == nullptr) return;
    out->clear();
    const auto* array = node->as_array();
    if (array == nullptr) Fail(node->source(), prefix + key, "must be a list of texts");
    if (array == nullptr) return;
    for (const toml::node& item : *array) {
      if (const auto* value = item.as_string()) {
        out->push_back(value->get());
      } else {
        Fail(item.source(), prefix + key, "must be a list of texts");
      }
    }
  }

  void ReadServer(const toml::table& table, ServerConfig* out) {
    const std::string prefix = "server.";
    Known(table, prefix, {"listen", "state", "auth", "certificate", "key"});
    Text(table, prefix, "listen", &out->listen);
    Text(table, prefix, "state", &out->state);
    Text(table, prefix, "auth", &out->auth);
    Text(table, prefix, "certificate", &out->certificate);
    Text(table, prefix, "key", &out->key);
  }

  void ReadShare(const toml::table& table, ShareConfig* out) {
    const std::string prefix = "share.";
    Known(table, prefix, {"name", "path", "read", "write", "restrict", "code_page"});
    Text(table, prefix, "name", &out->name);
    Text(table, prefix, "path", &out->path);
    Texts(table, prefix, "read", &out->read);
    Texts(table, prefix, "write", &out->write);
    Text(table, prefix, "code_page", &out->code_page);
    std::vector<std::string> restrictions;
    Texts(table, prefix, "restrict", &restrictions);
    for (const auto& name : restrictions) {
      const int value = RestrictionValue(name);
      if (value == 0) {
        Fail(table.get("restrict")->source(), prefix + "restrict",
             "\"" + name + R"(" is not "no-change", "no-delete" or "no-download")");
      }
      out->restrictions |= value;
    }
  }

  static int RestrictionValue(const std::string& name) {
    if (name == "no-change") return kNoChange;
    if (name == "no-delete") return kNoDelete;
    if (name == "no-download") return kNoDownload;
    return 0;
  }

  void ReadRemote(const toml::table& table, RemoteConfig* out) {
    const std::string prefix = "remote.";
    Known(table, prefix,
          {"name", "protocol", "host", "port", "user", "password_file", "key_file", "token_file",
           "known_hosts", "ca_file", "path", "code_page", "max_connections", "mount", "users"});
    Text(table, prefix, "name", &out->name);
    Text(table, prefix, "protocol", &out->protocol);
    Text(table, prefix, "host", &out->host);
    Whole(table, prefix, "port", &out->port);
    Text(table, prefix, "user", &out->user);
    Text(table, prefix, "password_file", &out->password_file);
    Text(table, prefix, "key_file", &out->key_file);
    Text(table, prefix, "token_file", &out->token_file);
    Text(table, prefix, "known_hosts", &out->known_hosts);
    Text(table, prefix, "ca_file", &out->ca_file);
    Text(table, prefix, "path", &out->path);
    Text(table, prefix, "code_page", &out->code_page);
    Whole(table, prefix, "max_connections", &out->max_connections);
    Text(table, prefix, "mount", &out->mount);
    Texts(table, prefix, "users", &out->users);
  }

  void ReadBandwidth(const toml::table& table, Config* out) {
    Known(table, "bandwidth.", {"default"});
    std::string amount = "0";
    Text(table, "bandwidth.", "default", &amount);
    if (!ParseByteAmount(amount, &out->bandwidth_default)) {
      Fail(table.get("default")->source(), "bandwidth.default",
           "\"" + amount + "\" is not an amount such as \"20MB\"");
    }
  }

  void ReadCopyMove(const toml::table& table, Config* out) {
    const std::string prefix = "copymove.";
    Known(table, prefix, {"filebrowserxferlog", "finished_tasks_hours"});
    std::string transfer_log;
    Text(table, prefix, "filebrowserxferlog", &transfer_log);
    if (table.contains("filebrowserxferlog")) {
      if (transfer_log != "yes" && transfer_log != "no") {
        Fail(table.get("filebrowserxferlog")->source(), prefix + "filebrowserxferlog",
             R"(must be "yes" or "no")");
      }
      out->copymove.emplace_back("filebrowserxferlog", transfer_log);
    }
    Whole(table, prefix, "finished_tasks_hours", &out->finished_tasks_hours);
    if (table.contains("finished_tasks_hours")) {
      out->copymove.emplace_back("finished_tasks_hours", std::to_string(out->finished_tasks_hours));
    }
  }

  const std::string& file_;
  const toml::table& root_;
  std::string error_;
};

bool ReadWhole(const std::string& file, std::string* out) {
  const UniqueFd fd(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return false;
  std::array<char, 4096> chunk;
  while (true) {
    const ssize_t got = read(fd.get(), chunk.data(), chunk.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return got == 0;
    out->append(chunk.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace

bool LoadConfig(const std::string& file, Config* out, std::string* err) {
  std::string text;
  if (!ReadWhole(file, &text)) {
    *err = file + ": " + std::strerror(errno);
    return false;
  }
  const toml::parse_result parsed = toml::parse(text, file);
  if (!parsed) {
    const auto& fault = parsed.error();
    *err = file + ":" + std::to_string(fault.source().begin.line) + ": " +
           std::string(fault.description());
    return false;
  }
  Reader reader(file, parsed.table());
  Config config;
  if (!reader.Read(&config)) {
    *err = reader.error();
    return false;
  }
  *out = std::move(config);
  return true;
}

}  // namespace core
