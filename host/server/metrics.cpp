#include "metrics.h"

#include <algorithm>
#include <sstream>

namespace host {
namespace {

void Head(std::ostream& out, const char* name, const char* type, const char* help) {
  out << "# HELP " << name << " " << help << "\n# TYPE " << name << " " << type << "\n";
}

}  // namespace

void RequestFigures::Note(int status, std::chrono::steady_clock::duration time) {
  const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
  const double seconds = static_cast<double>(micros) / 1e6;
  ++by_class_[static_cast<std::size_t>(std::clamp(status / 100, 0, 5))];
  for (std::size_t i = 0; i < kBounds.size(); ++i) {
    if (seconds <= kBounds[i]) ++buckets_[i];
  }
  ++count_;
  micros_ += static_cast<std::uint64_t>(std::max<std::int64_t>(micros, 0));
}

std::string RequestFigures::Text() const {
  std::ostringstream out;
  Head(out, "fennox_requests_total", "counter", "Answered requests by class of HTTP status.");
  for (std::size_t i = 2; i < by_class_.size(); ++i) {
    out << "fennox_requests_total{class=\"" << i << "xx\"} " << by_class_[i] << "\n";
  }
  Head(out, "fennox_request_seconds", "histogram", "Time to answer a request.");
  for (std::size_t i = 0; i < kBounds.size(); ++i) {
    out << "fennox_request_seconds_bucket{le=\"" << kBounds[i] << "\"} " << buckets_[i] << "\n";
  }
  const std::uint64_t count = count_;
  out << "fennox_request_seconds_bucket{le=\"+Inf\"} " << count << "\n"
      << "fennox_request_seconds_sum " << static_cast<double>(micros_) / 1e6 << "\n"
      << "fennox_request_seconds_count " << count << "\n";
  return out.str();
}

std::string FiguresText(const TaskFigures& figures) {
  std::ostringstream out;
  Head(out, "fennox_tasks", "gauge", "Tasks on record by state.");
  out << "fennox_tasks{state=\"running\"} " << figures.running << "\n"
      << "fennox_tasks{state=\"queued\"} " << figures.queued << "\n"
      << "fennox_tasks{state=\"finished\"} " << figures.finished << "\n"
      << "fennox_tasks{state=\"failed\"} " << figures.failed << "\n";
  Head(out, "fennox_tasks_bytes", "gauge",
       "Bytes transferred by the tasks on record, as each last reported.");
  out << "fennox_tasks_bytes " << figures.bytes << "\n";
  Head(out, "fennox_tasks_started_total", "counter", "Tasks that were started.");
  out << "fennox_tasks_started_total " << figures.totals.started << "\n";
  Head(out, "fennox_tasks_ended_total", "counter", "Tasks that ended, by how they did.");
  out << "fennox_tasks_ended_total{state=\"finished\"} " << figures.totals.finished << "\n"
      << "fennox_tasks_ended_total{state=\"failed\"} " << figures.totals.failed << "\n"
      << "fennox_tasks_ended_total{state=\"stopped\"} " << figures.totals.stopped << "\n";
  Head(out, "fennox_transferred_bytes_total", "counter",
       "Bytes transferred by tasks that ended; those without accurate progress count none.");
  out << "fennox_transferred_bytes_total " << figures.totals.bytes << "\n";
  return out.str();
}

}  // namespace host
