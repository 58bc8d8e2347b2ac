#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

namespace host {
namespace {

// Relative paths are meant from where the command was typed.
std::string Absolute(const std::string& path) {
  std::error_code ec;
  const auto absolute = std::filesystem::absolute(path, ec);
  std::string text = ec ? path : absolute.lexically_normal().string();
  if (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

bool AddShare(const std::string& text, core::Config* config, std::string* err) {
  const std::size_t equal = text.find('=');
  if (equal == std::string::npos || equal == 0 || equal + 1 == text.size()) {
    *err = "--share " + text + ": expected NAME=PATH";
    return false;
  }
  core::ShareConfig share;
  share.name = text.substr(0, equal);
  share.path = Absolute(text.substr(equal + 1));
  share.read = {"*"};
  share.write = {"*"};
  std::error_code ec;
  if (!std::filesystem::is_directory(share.path, ec)) {
    *err = "--share " + text + ": " + share.path + " is not a folder";
    return false;
  }
  auto& shares = config->shares;
  const auto same = std::find_if(shares.begin(), shares.end(), [&](const core::ShareConfig& known) {
    return known.name == share.name;
  });
  if (same == shares.end()) {
    shares.push_back(std::move(share));
  } else {
    *same = std::move(share);
  }
  return true;
}

}  // namespace

ParseResult ParseOptions(int argc, char** argv, Options* out) {
  CLI::App app{"Serves background copies and moves of files over HTTP.", "fennoxd"};
  app.set_version_flag("--version", "fennoxd " FENNOX_VERSION);
  app.add_option("--config", out->config_file, "configuration file (TOML)");
  app.add_option("--state", out->state, "folder for task records, token and logs");
  app.add_option("--share", out->shares, "NAME=PATH: serve the folder PATH as /NAME/…")
      ->expected(1)
      ->take_all();
  app.add_option("--listen", out->listen, "ADDRESS:PORT; port 0 takes any free one");
  app.add_option("--module", out->module, "plug-in to load (default: the one beside fennoxd)");
  app.add_flag("--log-stderr", out->log_to_stderr, "copy the log to standard error");
  app.add_flag("--check-config", out->check_config, "only check the configuration");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? ParseResult::kDone : ParseResult::kWrong;
  }
  return ParseResult::kRun;
}

bool BuildConfig(const Options& options, core::Config* out, std::string* err) {
  if (options.config_file.empty() && options.state.empty()) {
    *err = "give --config FILE, or --state DIR and --share NAME=PATH";
    return false;
  }
  if (!options.config_file.empty() && !core::LoadConfig(options.config_file, out, err)) {
    return false;
  }
  if (!options.state.empty()) out->server.state = Absolute(options.state);
  if (!options.listen.empty()) out->server.listen = options.listen;
  for (const std::string& share : options.shares) {
    if (!AddShare(share, out, err)) return false;
  }
  return core::CheckConfig(*out, err);
}

}  // namespace host
