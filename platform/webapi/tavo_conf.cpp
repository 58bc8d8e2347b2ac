#include "webapi_runtime/tavo_conf.h"

#include "core/config.h"

std::string TavoConf::Info(const char* key, const char* fallback) const {
  for (const auto& [name, value] : core::CurrentConfig().copymove) {
    if (name == key) return value;
  }
  return fallback;
}
