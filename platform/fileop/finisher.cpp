#include "finisher.h"

#include <utility>

#include "metadata.h"

namespace fileop {

class Finisher::Task : public Work {
 public:
  Task(Finisher* finisher, Job& job, PendingFile& file)
      : finisher_(finisher),
        rules_(job.request.rules),
        folder_(job.to),
        name_(job.name),
        to_name_(job.to_name),
        src_(std::move(job.src)),
        st_(job.st),
        file_(std::move(file)) {}

  void Do() override {
    const bool done = ApplyMetadata(rules_, src_.get(), st_, folder_, file_.fd()) == 0 &&
                      file_.Close() == 0 && file_.Commit(to_name_, false) == 0;
    if (!done) finisher_->Note(name_, LatestFailure());
    src_.reset();
    file_.Discard();
  }

  // Undoes the taking.
  void GiveBack(Job& job, PendingFile& file) {
    job.src = std::move(src_);
    file.Swap(file_);
  }

 private:
  Finisher* finisher_;
  const MetadataRules& rules_;
  TargetFolder& folder_;
  std::string name_;
  std::string to_name_;
  core::UniqueFd src_;
  struct stat st_;
  PendingFile file_;
};

int Finisher::Take(Job& job, PendingFile& file) {
  // The folder's owner must be known, so that nobody has to find it out while
  // two threads use it; links are made to finished files only.
  if (!job.to.unseen || !job.to.owner_known || job.st.st_nlink > 1) return 0;
  const auto task = std::make_shared<Task>(this, job, file);
  if (helper_->Post(task)) {
    job.outcome = Outcome::kCopied;
    return 1;
  }
  task->GiveBack(job, file);
  return 0;
}

std::vector<Finisher::Failed> Finisher::Settle() {
  helper_->Drain();
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(failed_, {});
}

void Finisher::Note(std::string name, const Failure& failure) {
  const std::lock_guard<std::mutex> lock(mutex_);
  failed_.push_back({std::move(name), failure});
}

}  // namespace fileop
