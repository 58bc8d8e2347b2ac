// Metadata and closing of files that were copied into a folder nobody sees yet.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "helper.h"
#include "job.h"
#include "pending_file.h"

namespace fileop {

// Finishes the files of one folder, which must stay where it is until all are settled.
class Finisher {
 public:
  struct Failed {
    std::string name;  // in the source folder
    Failure failure;
  };

  explicit Finisher(Helper* helper);

  // Takes the job's file over when it can be finished later: 1 when taken, 0 when
  // the caller has to finish it.
  int Take(Job& job, PendingFile& file);

  // Nothing is taken and unfinished.
  bool Idle() const;

  // Waits for all that was taken and hands out what failed; those files are gone.
  std::vector<Failed> Settle();

 private:
  class Task;
  struct State;

  Helper* helper_;
  std::shared_ptr<State> state_;
};

}  // namespace fileop
