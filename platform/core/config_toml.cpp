#define TOML_EXCEPTIONS 0
#define TOML_HEADER_ONLY 1
#define TOML_ENABLE_FORMATTERS 0
#include <fcntl.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config_check.h"
#include "core/config.h"
#include "core/unique_fd.h"

namespace core {
namespace {

// Keeps the first error found in a file.
class Errors {
 public:
  explicit Errors(std::string file) : file_(std::move(file)) {}

  void Add(const toml::source_region& where, const std::string& key, const std::string& words) {
    if (!first_.empty()) return;
    first_ = file_ + ":" + std::to_string(where.begin.line) + ": " + key + ": " + words;
  }
  const std::string& first() const { return first_; }

 private:
  std::string file_;
  std::string first_;
};

// One table of the file; a key that is not there leaves the target's default.
class Section {
 public:
  Section(const toml::table& table, std::string name, Errors* errors)
      : table_(table), prefix_(std::move(name) + "."), errors_(errors) {}

  void Known(std::initializer_list<std::string_view> keys) const {
    for (const auto& [key, value] : table_) {
      if (std::find(keys.begin(), keys.end(), key.str()) != keys.end()) continue;
      errors_->Add(key.source(), prefix_ + std::string(key.str()), "unknown key");
    }
  }

  bool Has(const char* key) const { return table_.contains(key); }

  void Fault(const char* key, const std::string& words) const {
    errors_->Add(table_.get(key)->source(), prefix_ + key, words);
  }

  void Text(const char* key, std::string* out) const {
    const toml::node* node = table_.get(key);
    if (node == nullptr) return;
    if (const auto* value = node->as_string()) {
      *out = value->get();
    } else {
      Fault(key, "must be a text in quotes");
    }
  }

  void Whole(const char* key, int* out) const {
    const toml::node* node = table_.get(key);
    if (node == nullptr) return;
    const auto* value = node->as_integer();
    if (value == nullptr) {
      Fault(key, "must be a whole number");
    } else if (value->get() < std::numeric_limits<int>::min() ||
               value->get() > std::numeric_limits<int>::max()) {
      Fault(key, "is out of range");
    } else {
      *out = static_cast<int>(value->get());
    }
  }

  void Texts(const char* key, std::vector<std::string>* out) const {
    const toml::node* node = table_.get(key);
    if (node == nullptr) return;
    out->clear();
    const auto* array = node->as_array();
    if (array == nullptr) {
      Fault(key, "must be a list of texts");
      return;
    }
    for (const toml::node& item : *array) {
      if (const auto* value = item.as_string()) {
        out->push_back(value->get());
      } else {
        errors_->Add(item.source(), prefix_ + key, "must be a list of texts");
      }
    }
  }

 private:
  const toml::table& table_;
  std::string prefix_;
  Errors* errors_;
};

int RestrictionValue(const std::string& name) {
  if (name == "no-change") return kNoChange;
  if (name == "no-delete") return kNoDelete;
  if (name == "no-download") return kNoDownload;
  return 0;
}

void ReadServer(const Section& section, ServerConfig* out) {
  section.Known({"listen", "state", "auth", "certificate", "key", "run_as", "metrics"});
  section.Text("listen", &out->listen);
  section.Text("state", &out->state);
  section.Text("auth", &out->auth);
  section.Text("certificate", &out->certificate);
  section.Text("key", &out->key);
  section.Text("run_as", &out->run_as);
  section.Text("metrics", &out->metrics);
}

void ReadLogin(const Section& section, LoginConfig* out) {
  section.Known({"service", "service_folder", "min_uid", "idle_hours", "max_hours"});
  section.Text("service", &out->service);
  section.Text("service_folder", &out->service_folder);
  section.Whole("min_uid", &out->min_uid);
  section.Whole("idle_hours", &out->idle_hours);
  section.Whole("max_hours", &out->max_hours);
}

void ReadLimits(const Section& section, LimitsConfig* out) {
  section.Known({"header_seconds", "body_seconds", "requests_per_second", "requests_at_once"});
  section.Whole("header_seconds", &out->header_seconds);
  section.Whole("body_seconds", &out->body_seconds);
  section.Whole("requests_per_second", &out->requests_per_second);
  section.Whole("requests_at_once", &out->requests_at_once);
}

void ReadShare(const Section& section, ShareConfig* out) {
  section.Known({"name", "path", "read", "write", "restrict", "code_page"});
  section.Text("name", &out->name);
  section.Text("path", &out->path);
  section.Texts("read", &out->read);
  section.Texts("write", &out->write);
  section.Text("code_page", &out->code_page);
  std::vector<std::string> restrictions;
  section.Texts("restrict", &restrictions);
  for (const auto& name : restrictions) {
    const int value = RestrictionValue(name);
    if (value == 0) {
      section.Fault("restrict",
                    "\"" + name + R"(" is not "no-change", "no-delete" or "no-download")");
    }
    out->restrictions |= value;
  }
}

void ReadRemote(const Section& section, RemoteConfig* out) {
  section.Known({"name", "protocol", "host", "port", "user", "password_file", "key_file",
                 "token_file", "known_hosts", "ca_file", "path", "code_page", "max_connections",
                 "connect_timeout", "mount", "users"});
  section.Text("name", &out->name);
  section.Text("protocol", &out->protocol);
  section.Text("host", &out->host);
  section.Whole("port", &out->port);
  section.Text("user", &out->user);
  section.Text("password_file", &out->password_file);
  section.Text("key_file", &out->key_file);
  section.Text("token_file", &out->token_file);
  section.Text("known_hosts", &out->known_hosts);
  section.Text("ca_file", &out->ca_file);
  section.Text("path", &out->path);
  section.Text("code_page", &out->code_page);
  section.Whole("max_connections", &out->max_connections);
  section.Whole("connect_timeout", &out->connect_timeout);
  section.Text("mount", &out->mount);
  section.Texts("users", &out->users);
}

void ReadToken(const Section& section, TokenConfig* out) {
  section.Known({"user", "file"});
  section.Text("user", &out->user);
  section.Text("file", &out->file);
}

void ReadBandwidth(const Section& section, Config* out) {
  section.Known({"default"});
  std::string amount = "0";
  section.Text("default", &amount);
  if (!ParseByteAmount(amount, &out->bandwidth_default)) {
    section.Fault("default", "\"" + amount + "\" is not an amount such as \"20MB\"");
  }
}

void ReadCopyMove(const Section& section, Config* out) {
  section.Known({"filebrowserxferlog", "finished_tasks_hours"});
  if (section.Has("filebrowserxferlog")) {
    std::string transfer_log;
    section.Text("filebrowserxferlog", &transfer_log);
    if (transfer_log != "yes" && transfer_log != "no") {
      section.Fault("filebrowserxferlog", R"(must be "yes" or "no")");
    }
    out->copymove.emplace_back("filebrowserxferlog", transfer_log);
  }
  if (section.Has("finished_tasks_hours")) {
    section.Whole("finished_tasks_hours", &out->finished_tasks_hours);
    out->copymove.emplace_back("finished_tasks_hours", std::to_string(out->finished_tasks_hours));
  }
}

// The top level of the file.
class Root {
 public:
  Root(const toml::table& table, Errors* errors) : table_(table), errors_(errors) {}

  void Read(Config* out) const {
    OnlyTables({"server", "login", "limits", "share", "remote", "token", "bandwidth", "copymove"});
    One("server", ReadServer, &out->server);
    One("login", ReadLogin, &out->login);
    One("limits", ReadLimits, &out->limits);
    Each("share", ReadShare, &out->shares);
    Each("remote", ReadRemote, &out->remotes);
    Each("token", ReadToken, &out->tokens);
    One("bandwidth", ReadBandwidth, out);
    One("copymove", ReadCopyMove, out);
  }

  // Places a fault at its key, or at its table when the key is not there.
  void Report(const ConfigFault& fault) const {
    const toml::node* node = table_.get(fault.table);
    if (const auto* array = node == nullptr ? nullptr : node->as_array()) {
      node = array->get(fault.index);
    }
    const auto* table = node == nullptr ? nullptr : node->as_table();
    const auto* value = table == nullptr ? nullptr : table->get(fault.key);
    if (value != nullptr) node = value;
    errors_->Add(node == nullptr ? table_.source() : node->source(), fault.table + "." + fault.key,
                 fault.words);
  }

 private:
  void OnlyTables(std::initializer_list<std::string_view> names) const {
    for (const auto& [key, value] : table_) {
      if (std::find(names.begin(), names.end(), key.str()) != names.end()) continue;
      errors_->Add(key.source(), std::string(key.str()),
                   value.is_table() ? "unknown table" : "unknown key");
    }
  }

  template <typename Target>
  void One(const char* name, void (*read)(const Section&, Target*), Target* out) const {
    const toml::node* node = table_.get(name);
    if (node == nullptr) return;
    if (const auto* table = node->as_table()) {
      read(Section(*table, name, errors_), out);
    } else {
      errors_->Add(node->source(), name, std::string("must be written as [") + name + "]");
    }
  }

  template <typename Target>
  void Each(const char* name, void (*read)(const Section&, Target*),
            std::vector<Target>* out) const {
    const toml::node* node = table_.get(name);
    if (node == nullptr) return;
    const auto* array = node->as_array();
    const std::string words = std::string("must be written as [[") + name + "]]";
    if (array == nullptr) {
      errors_->Add(node->source(), name, words);
      return;
    }
    for (const toml::node& item : *array) {
      if (const auto* table = item.as_table()) {
        read(Section(*table, name, errors_), &out->emplace_back());
      } else {
        errors_->Add(item.source(), name, words);
      }
    }
  }

  const toml::table& table_;
  Errors* errors_;
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
  Errors errors(file);
  const Root root(parsed.table(), &errors);
  Config config;
  root.Read(&config);
  if (errors.first().empty()) {
    if (const auto fault = FindConfigFault(config)) root.Report(*fault);
  }
  if (!errors.first().empty()) {
    *err = errors.first();
    return false;
  }
  *out = std::move(config);
  return true;
}

}  // namespace core
