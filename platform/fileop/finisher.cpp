#include "finisher.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "metadata.h"

namespace fileop {

// Outlives the folder for as long as somebody tells that its last file is finished.
struct Finisher::State {
  std::atomic<int> unfinished{0};
  std::mutex mutex;
  std::vector<Failed> failed;
};

class Finisher::Task : public Work {
 public:
  Task(std::shared_ptr<State> state, Job& job, PendingFile& file)
      : state_(std::move(state)),
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
    if (!done) {
      const std::lock_guard<std::mutex> lock(state_->mutex);
      state_->failed.push_back({name_, LatestFailure()});
    }
    src_.reset();
    file_.Discard();
    if (state_->unfinished.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      state_->unfinished.notify_all();
    }
  }

  // Undoes the taking.
  void GiveBack(Job& job, PendingFile& file) {
    job.src = std::move(src_);
    file.Swap(file_);
  }

 private:
  std::shared_ptr<State> state_;
  const MetadataRules& rules_;
  TargetFolder& folder_;
  std::string name_;
  std::string to_name_;
  core::UniqueFd src_;
  struct stat st_;
  PendingFile file_;
};

Finisher::Finisher(Helper* helper) : helper_(helper), state_(std::make_shared<State>()) {}

int Finisher::Take(Job& job, PendingFile& file) {
  // The folder's owner must be known, so that nobody has to find it out while
  // two threads use it; links are made to finished files only.
  if (!job.to.unseen || !job.to.owner_known || job.st.st_nlink > 1) return 0;
  // Who wrote the file has it at hand; help is for when there is nothing to open ahead.
  if (helper_->HasWork()) return 0;
  const auto task = std::make_shared<Task>(state_, job, file);
  state_->unfinished.fetch_add(1, std::memory_order_relaxed);
  if (helper_->Post(task)) {
    job.outcome = Outcome::kCopied;
    return 1;
  }
  state_->unfinished.fetch_sub(1, std::memory_order_relaxed);
  task->GiveBack(job, file);
  return 0;
}

bool Finisher::Idle() const { return state_->unfinished.load(std::memory_order_acquire) == 0; }

std::vector<Finisher::Failed> Finisher::Settle() {
  while (!Idle() && helper_->LendHand()) {
  }
  SpinBriefly([this] { return Idle(); });
  for (int left = state_->unfinished; left != 0; left = state_->unfinished) {
    state_->unfinished.wait(left);
  }
  const std::lock_guard<std::mutex> lock(state_->mutex);
  return std::exchange(state_->failed, {});
}

}  // namespace fileop
