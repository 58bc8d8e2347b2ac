// Figures about the server in the Prometheus text format. No user's name is in them.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "task_figures.h"

namespace host {

// The requests that were answered. May be used by several threads at once.
class RequestFigures {
 public:
  void Note(int status, std::chrono::steady_clock::duration time);
  std::string Text() const;

 private:
  // Upper bounds of the buckets, in seconds.
  static constexpr std::array<double, 8> kBounds{0.005, 0.02, 0.1, 0.5, 1, 5, 20, 60};

  std::array<std::atomic<std::uint64_t>, 6> by_class_{};  // statuses by their first digit
  std::array<std::atomic<std::uint64_t>, kBounds.size()> buckets_{};
  std::atomic<std::uint64_t> count_{0};
  std::atomic<std::uint64_t> micros_{0};
};

// The tasks, all users together.
std::string FiguresText(const TaskFigures& figures);

}  // namespace host
