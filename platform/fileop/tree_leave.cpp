// How the walk leaves a folder.
#include "metadata.h"
#include "tree_copy.h"

namespace fileop {

void TreeCopy::Leave() {
  CloseWaiting();
  Level& level = *levels_.back();
  if (prepared_ != nullptr && (stopped_ || prepared_->parent() == level.from.id)) DropPrepared();
  if (!level.in_folders) lookahead_.Clear();
  if (MayWait(level)) {
    Resume(level);
    waiting_ = std::move(levels_.back());
  } else {
    Settle(level);
    FlushReplacements(level);
    Close(level);
    Resume(level);
  }
  levels_.pop_back();
}

// While others finish the last files of such a folder, the walk may go on with the next one:
// nothing comes into it any more, and nobody sees it yet.
bool TreeCopy::MayWait(const Level& level) const {
  return !stopped_ && level.open && level.to.unseen && !level.lost && !level.has_folders &&
         !level.from.remote && level.above != nullptr;
}

void TreeCopy::CloseWaiting() {
  if (waiting_ == nullptr) return;
  const std::unique_ptr<Level> level = std::move(waiting_);
  Close(*level);
}

void TreeCopy::Close(Level& level) {
  Settle(level);
  Publish(level);
  if (!level.lost) {
    ApplyFolderMetadata(level);
    RemoveFolderLater(level);
  }
  if (level.above != nullptr) {
    level.above->kept = level.above->kept || level.kept || level.lost;
  }
}

// Opens the folder above again, to go on there.
void TreeCopy::Resume(Level& level) {
  if (level.above == nullptr || ResumeLevel(level, level.above) == 0) return;
  Note(LatestFailure());
  level.above->lost = true;
}

void TreeCopy::ApplyFolderMetadata(Level& level) {
  if (!level.fresh || !level.open) return;
  if (ApplyMetadata(request_.rules, level.from.fd.get(), level.st, ParentTo(level),
                    level.to.fd.get()) < 0) {
    Note(LatestFailure());
  }
}

void TreeCopy::RemoveFolderLater(Level& level) {
  if (!request_.removes || level.kept || stopped_) {
    level.kept = level.kept || stopped_;
    return;
  }
  std::shared_ptr<const Origin> origin;
  if (level.above == nullptr) {
    origin = std::make_shared<Origin>(Origin{root_from_->path, root_from_->id});
  } else {
    origin = level.above->origin;
  }
  removals_.Add(origin, level.name, level.st);
}

}  // namespace fileop
