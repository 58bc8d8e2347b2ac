#include "host/cli/progress_model.h"

#include <algorithm>
#include <cmath>

namespace cli {
namespace {

// An estimate stays short of a whole until the worker says so itself.
constexpr double kAlmost = 0.999;

bool SameWrite(const TaskStatus& a, const TaskStatus& b) {
  return a.finished == b.finished && a.ratio == b.ratio && a.total == b.total &&
         a.processed == b.processed && a.rate == b.rate && a.state == b.state && a.path == b.path &&
         a.found_files == b.found_files;
}

double RealFraction(const TaskStatus& status) {
  return status.Measured() ? std::clamp(status.ratio, 0.0, 1.0) : 0.0;
}

bool HasRate(const TaskStatus& status) {
  return status.in_bytes && std::isfinite(status.rate) && status.rate > 0;
}

double Predicted(const ProgressModel& model, double now) {
  const double real = RealFraction(model.last);
  if (!model.last.Measured() || model.last.finished || !HasRate(model.last) || real >= 1) {
    return real;
  }
  const double age = std::clamp(now - model.seen_at, 0.0, kWriteInterval);
  return std::max(real, std::min(real + model.last.rate * age / model.last.total, kAlmost));
}

}  // namespace

ProgressModel Observe(const ProgressModel& model, const TaskStatus& status, double now) {
  if (model.any && SameWrite(model.last, status)) return model;
  return {status, now, EstimateAt(model, now).fraction, true};
}

Estimate EstimateAt(const ProgressModel& model, double now) {
  Estimate estimate;
  if (!model.any) return estimate;
  estimate.measured = model.last.Measured();
  estimate.fraction = std::max(model.floor, Predicted(model, now));
  if (estimate.measured && HasRate(model.last)) {
    estimate.remaining = (1 - estimate.fraction) * model.last.total / model.last.rate;
  }
  return estimate;
}

std::chrono::milliseconds NextPoll(std::chrono::milliseconds current) {
  return std::min(kLastPoll, std::max(kFirstPoll, current + current / 4));
}

}  // namespace cli
