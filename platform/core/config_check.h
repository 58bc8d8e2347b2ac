// Checks of a configuration's values, apart from where they were read.
#pragma once

#include <optional>
#include <string>

#include "core/config.h"

namespace core {

// What is wrong, and with which setting.
struct ConfigFault {
  std::string table;      // such as "share"
  std::size_t index = 0;  // which of several such tables
  std::string key;
  std::string words;
};

// The first fault of a configuration.
[[nodiscard]] std::optional<ConfigFault> FindConfigFault(const Config& config);

// Limits of finished_tasks_hours: an hour up to ten years.
inline constexpr int kMinFinishedHours = 1;
inline constexpr int kMaxFinishedHours = 87600;

}  // namespace core
