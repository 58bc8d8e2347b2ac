// The command line, and the configuration that it and the file make together.
#pragma once

#include <string>
#include <vector>

#include "core/config.h"

namespace host {

struct Options {
  std::string config_file;
  std::string state;
  std::string listen;
  std::vector<std::string> shares;  // "NAME=PATH"
  std::string module;               // empty: the one beside the executable
  bool log_to_stderr = false;
  bool check_config = false;
};

enum class ParseResult {
  kRun,
  kDone,   // help was printed
  kWrong,  // words were printed
};

ParseResult ParseOptions(int argc, char** argv, Options* out);

// Reads the file when one is named and lets the options win: a state folder or an address
// replaces the file's, a share replaces the file's share of the same name or joins them.
// Shares of the command line may be read and written by everyone. False with words in *err.
[[nodiscard]] bool BuildConfig(const Options& options, core::Config* out, std::string* err);

}  // namespace host
