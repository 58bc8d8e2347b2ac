#include "host/cli/words.h"

#include <support/errors.h>

#include "host/cli/format.h"

namespace cli {
namespace {

const char* Past(Action action) {
  switch (action) {
    case Action::kCopy:
      return "Copied";
    case Action::kMove:
      return "Moved";
    case Action::kTransfer:
      break;
  }
  return "Done";
}

}  // namespace

std::string Reason(int code) {
  std::string text = support::ErrorText(code);
  if (!text.empty() && text.back() == '.') text.pop_back();
  return text + " (" + std::to_string(code) + ")";
}

std::string FailureLine(const Failure& failure) {
  if (failure.path.empty()) return Reason(failure.code);
  return Printable(failure.path) + ": " + Reason(failure.code);
}

std::vector<std::string> ErrorLines(const CallError& error) {
  if (error.kind != CallError::Kind::kApi) return {error.text};
  std::vector<std::string> lines = {Reason(error.code)};
  for (const Failure& failure : FailuresOf(error.detail)) {
    lines.push_back("  " + FailureLine(failure));
  }
  if (error.detail.isString()) lines.push_back("  " + Printable(error.detail.asString()));
  return lines;
}

std::string Amount(const TaskStatus& status, double fraction) {
  if (!status.in_bytes) {
    return FormatCount(status.processed) + " of " + FormatCount(status.total) + " entries";
  }
  std::string text = FormatBytes(fraction * status.total) + " of " + FormatBytes(status.total);
  if (status.rate > 0) text += "  " + FormatBytes(status.rate) + "/s";
  return text;
}

std::string Unmeasured(const TaskStatus& status) {
  if (status.state == "NOT_STARTED") return "waiting";
  if (status.found_files <= 0) return "working";
  return FormatCount(status.found_files) + " files, " + FormatBytes(status.found_bytes);
}

std::string StatusLine(const TaskStatus& status) {
  std::string line = status.Measured()
                         ? FormatPercent(status.ratio) + "  " + Amount(status, status.ratio)
                         : Unmeasured(status);
  if (!status.path.empty()) line += "  " + Printable(status.path);
  return line;
}

std::string ResultLine(Action action, const TaskStatus& status, double seconds) {
  const std::string time = seconds > 0 ? " in " + FormatElapsed(seconds) : "";
  if (status.failed)
    return "Failed" + (seconds > 0 ? " after " + FormatElapsed(seconds) : "") + ".";
  if (!status.failures.empty()) {
    const std::size_t count = status.failures.size();
    return "Finished" + time + " with " + FormatCount(static_cast<double>(count)) +
           (count == 1 ? " failure." : " failures.");
  }
  if (status.skipped == "all")
    return "Nothing to do: everything exists at the destination already.";
  std::string line = Past(action);
  if (status.total > 0) {
    line += " " + (status.in_bytes
                       ? FormatBytes(status.total)
                       : FormatCount(status.total) + (status.total == 1 ? " entry" : " entries"));
  }
  line += time;
  if (status.skipped == "some") line += "; what existed already was skipped";
  return line + ".";
}

}  // namespace cli
