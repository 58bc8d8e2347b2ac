#include "host/cli/progress_view.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host/cli/format.h"
#include "host/cli/words.h"

namespace cli {
namespace {

constexpr std::size_t kBarColumns = 26;
constexpr std::size_t kDefaultColumns = 80;
constexpr double kRedrawSeconds = 0.1;

std::size_t TerminalColumns(std::FILE* stream) {
  winsize size{};
  if (::ioctl(::fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return kDefaultColumns;
}

class BarView : public ProgressView {
 public:
  explicit BarView(std::FILE* stream) : stream_(stream) {}

  void Show(const ProgressModel& model, double clock) override {
    if (drawn_ && clock - drawn_at_ < kRedrawSeconds) return;
    // The last column stays free: filling it would wrap the line on some terminals.
    const std::size_t columns = std::max<std::size_t>(TerminalColumns(stream_), 2) - 1;
    const std::string line = ProgressLine(model.last, EstimateAt(model, clock), clock, columns);
    std::fprintf(stream_, "\r%s\x1b[K", line.c_str());
    std::fflush(stream_);
    drawn_ = true;
    drawn_at_ = clock;
  }

  void End() override {
    if (drawn_) std::fputs("\r\x1b[K", stream_);
    std::fflush(stream_);
    drawn_ = false;
  }

 private:
  std::FILE* stream_;
  bool drawn_ = false;
  double drawn_at_ = 0;
};

class LineView : public ProgressView {
 public:
  explicit LineView(std::FILE* stream) : stream_(stream) {}

  void Show(const ProgressModel& model, double) override {
    if (!model.last.Measured() || model.last.finished || model.seen_at == shown_) return;
    shown_ = model.seen_at;
    const Estimate real = EstimateAt(model, model.seen_at);
    const std::string path = model.last.path.empty() ? "" : "  " + Printable(model.last.path);
    std::fprintf(stream_, "%s  %s%s\n", FormatPercent(real.fraction).c_str(),
                 Amount(model.last, real.fraction).c_str(), path.c_str());
    std::fflush(stream_);
  }

  void End() override {}

 private:
  std::FILE* stream_;
  double shown_ = -1;
};

bool IsTerminal(std::FILE* stream) {
  const char* term = std::getenv("TERM");
  return ::isatty(::fileno(stream)) == 1 && (term == nullptr || std::strcmp(term, "dumb") != 0);
}

}  // namespace

std::string ProgressLine(const TaskStatus& status, const Estimate& estimate, double clock,
                         std::size_t columns) {
  std::string line;
  if (estimate.measured) {
    line = Bar(estimate.fraction, kBarColumns) + " " + FormatPercent(estimate.fraction) + "  " +
           Amount(status, estimate.fraction);
    if (estimate.remaining >= 0) line += "  " + FormatDuration(estimate.remaining + 0.5);
  } else {
    line = WanderingBar(clock, kBarColumns) + "  " + Unmeasured(status);
  }
  line = FitColumns(line, columns);
  constexpr std::size_t kGap = 2;
  constexpr std::size_t kShortest = 8;
  const std::size_t used = Columns(line) + kGap;
  if (!status.path.empty() && used + kShortest <= columns) {
    line += "  " + FitColumns(Printable(status.path), columns - used);
  }
  return line;
}

std::unique_ptr<ProgressView> MakeProgressView(std::FILE* stream) {
  if (IsTerminal(stream)) return std::make_unique<BarView>(stream);
  return std::make_unique<LineView>(stream);
}

}  // namespace cli
