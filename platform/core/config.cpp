#include "core/config.h"

#include <utility>

namespace core {
namespace {

Config& Current() {
  static Config config;
  return config;
}

}  // namespace

void SetConfig(Config config) { Current() = std::move(config); }

const Config& CurrentConfig() { return Current(); }

}  // namespace core
