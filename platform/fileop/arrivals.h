// Files of one folder that are still on their way.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "fileop/behind.h"
#include "job.h"

namespace fileop {

class Arrivals {
 public:
  // Hears how a file ended; not arrived: it has to be copied again.
  using OnEnd = std::function<void(Job& job, bool arrived)>;

  // A name that some server might take for that of a file on its way.
  bool MayCollide(const std::string& name) const;

  // Takes a job over that the data hook has left behind.
  void Add(Job& job) { jobs_.push_back(std::make_unique<Job>(std::move(job))); }
  bool Full() const { return jobs_.size() >= kMost; }

  // Waits for the files in the order they came until at most `leave` are on their way.
  void Await(const TAVOBEHINDHOOKS& hooks, std::size_t leave, const OnEnd& on_end);

  static constexpr std::size_t kMost = 16;

 private:
  std::deque<std::unique_ptr<Job>> jobs_;
};

}  // namespace fileop
