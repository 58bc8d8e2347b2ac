// Metadata and closing of files that were copied into a folder nobody sees yet.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "helper.h"
#include "job.h"
#include "pending_file.h"

namespace fileop {

class Finisher {
 public:
  struct Failed {
    std::string name;  // in the source folder
    Failure failure;
  };

  explicit Finisher(Helper* helper) : helper_(helper) {}

  // Takes the job's file over when it can be finished later: 1 when taken, 0 when
  // the caller has to finish it.
  int Take(Job& job, PendingFile& file);

  // Waits for all that was taken and hands out what failed; those files are gone.
  std::vector<Failed> Settle();

 private:
  class Task;

  void Note(std::string name, const Failure& failure);

  Helper* helper_;
  std::mutex mutex_;
  std::vector<Failed> failed_;
};

}  // namespace fileop
