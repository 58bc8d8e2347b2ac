#include "arrivals.h"

#include <algorithm>
#include <utility>

#include "core/error.h"
#include "failure.h"
#include "pending_file.h"

namespace fileop {
namespace {

// Equal for all names that some server may hold for one: case, and dots and blanks at the end, do
// not count, nor does what is not ASCII.
std::string Folded(const std::string& name) {
  std::string folded;
  for (const char c : name) {
    if (static_cast<unsigned char>(c) >= 0x80) {
      if (folded.empty() || folded.back() != '/') folded += '/';
    } else {
      folded += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
  }
  folded.erase(folded.find_last_not_of(". ") + 1);
  return folded;
}

}  // namespace

bool Arrivals::MayCollide(const std::string& name) const {
  const std::string folded = Folded(name);
  return std::any_of(jobs_.begin(), jobs_.end(),
                     [&](const auto& job) { return Folded(job->to_name) == folded; });
}

void Arrivals::Await(const TAVOBEHINDHOOKS& hooks, std::size_t leave, const OnEnd& on_end) {
  while (jobs_.size() > leave) {
    const std::unique_ptr<Job> job = std::move(jobs_.front());
    jobs_.pop_front();
    const int fetch = job->from.remote ? 1 : 0;
    const std::string shown = fetch != 0 ? job->pending->ShownPath() : job->dst_path;
    const int before = VLIBCErrGet();
    ClearFailure();
    const bool arrived = hooks.await(fetch, shown.c_str(), job->behind) == 0;
    if (arrived) RestoreCode(before);
    on_end(*job, arrived);
  }
}

}  // namespace fileop
