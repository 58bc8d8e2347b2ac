// Files of one folder that are still on their way to its server.
#pragma once

#include <sys/stat.h>

#include <deque>
#include <functional>
#include <string>

#include "core/unique_fd.h"
#include "fileop/behind.h"
#include "job.h"

namespace fileop {

class Arrivals {
 public:
  struct Sent {
    std::string name;  // in the source folder
    std::string to_name;
    std::string dst_path;
    core::UniqueFd src;
    struct stat st;  // of the source, before anything was read
    unsigned long long number;
  };
  // Hears how a file ended; not arrived: it has to be copied again.
  using OnEnd = std::function<void(Sent& sent, bool arrived)>;

  // A name that the server might take for that of a file on its way.
  bool MayCollide(const std::string& name) const;

  // Takes a job over that the data hook has left behind.
  void Add(Job& job);
  bool Full() const { return files_.size() >= kMost; }

  // Waits for the files in the order they came until at most `leave` are on their way.
  void Await(const TAVOBEHINDHOOKS& hooks, std::size_t leave, const OnEnd& on_end);

  static constexpr std::size_t kMost = 16;

 private:
  std::deque<Sent> files_;
};

}  // namespace fileop
