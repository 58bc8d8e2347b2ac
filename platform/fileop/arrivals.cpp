#include "arrivals.h"

#include <algorithm>
#include <utility>

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
  return std::any_of(files_.begin(), files_.end(),
                     [&](const Sent& sent) { return Folded(sent.to_name) == folded; });
}

void Arrivals::Add(Job& job) {
  files_.push_back({job.name, job.to_name, job.dst_path, std::move(job.src), job.st, job.behind});
}

void Arrivals::Await(const TAVOBEHINDHOOKS& hooks, std::size_t leave, const OnEnd& on_end) {
  while (files_.size() > leave) {
    Sent sent = std::move(files_.front());
    files_.pop_front();
    on_end(sent, hooks.await(sent.dst_path.c_str(), sent.number) == 0);
  }
}

}  // namespace fileop
