#include "host/cli/refusal.h"

#include <iostream>

#include "host/cli/options.h"
#include "host/cli/words.h"

namespace cli {

int Refuse(const CallError& error, const std::string& what) {
  const auto lines = ErrorLines(error);
  std::cerr << "fennox: " << what << lines.front() << "\n";
  for (std::size_t i = 1; i < lines.size(); ++i) std::cerr << "fennox: " << lines[i] << "\n";
  return kExitRefused;
}

int Refuse(const std::string& text) {
  std::cerr << "fennox: " << text << "\n";
  return kExitRefused;
}

}  // namespace cli
