// Copying or moving a folder with all below it.
//
// Each folder is walked twice: first its files, then its folders. A folder that
// is new at the destination is made under a temporary name, filled with its files
// under their final names, and renamed to its own name before the walk goes
// deeper. So files need no step of their own to become visible only when they are
// whole, a folder in the dark holds files only, and every folder above the walk
// has its final name.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ahead_folder.h"
#include "arrivals.h"
#include "entry.h"
#include "hard_links.h"
#include "helper.h"
#include "job.h"
#include "level.h"
#include "lookahead.h"
#include "removal.h"
#include "replace_batch.h"

namespace fileop {

class TreeCopy {
 public:
  explicit TreeCopy(Request& request) : request_(request) {}

  // Carries the folder `src_name` of `from` over as `dst_name` into `to`. 0 on
  // success, -1 with the first failure as the last error. *outcome tells how.
  [[nodiscard]] int Run(SourceFolder& from, const std::string& src_name, TargetFolder& to,
                        const std::string& dst_name, Outcome* outcome);

 private:
  struct Place {
    SourceFolder& from;
    TargetFolder& to;
    std::string name;
    std::string to_name;
    bool rename;
  };

  void Step();
  AheadPlace::How HowAhead(Level& level);
  void FileStep(Level& level);
  void FolderStep(Level& level);
  void ListingEnded(Level& level, int error);
  void CarryFile(Level& level, const Lookahead::Entry& entry);
  void PrepareToStayBehind(Level& level, Job& job);
  void Settle(Level& level);
  void AwaitArrivals(Level& level, std::size_t leave);
  void CarryAgain(Level& level, Job& sent);
  void FlushReplacements(Level& level);
  void AfterFile(Level& level, Job& job);
  void EndOfListing(Level& level);

  void Enter(Place place);
  int OpenTarget(Place& place, Level* level);
  int MakeFolder(Place& place, Level* level);
  int OpenSource(Place& place, Level* level);
  void PrepareNext(const Level& level);
  void DropPrepared();
  void Leave();
  void Close(Level& level);
  void CloseWaiting();
  bool MayWait(const Level& level) const;
  void Resume(Level& level);
  void ApplyFolderMetadata(Level& level);
  void RemoveFolderLater(Level& level);

  void Publish(Level& level);
  int MergeUnseen(Level& level, TargetFolder& parent);
  void Discard(Level& level, TargetFolder& parent);

  void StageRemoval(Level& level, const std::string& name, const struct stat& st);
  void FlushRemovals();
  void ReportRename(const std::string& src, const std::string& dst);
  bool Tick();
  void Note(const Failure& failure);
  bool DestinationAnswers() const;

  TargetFolder& ParentTo(const Level& level) {
    return level.above != nullptr ? level.above->to : *root_to_;
  }

  Request& request_;
  SourceFolder* root_from_ = nullptr;
  TargetFolder* root_to_ = nullptr;
  Identity own_target_;  // top folder of the copy: not to be copied into itself
  std::vector<std::unique_ptr<Level>> levels_;
  std::unique_ptr<Level> waiting_;         // left, and to be closed when its files are finished
  std::shared_ptr<AheadFolder> prepared_;  // its parent is open
  HardLinks links_;
  Helper helper_;
  Lookahead lookahead_{&helper_};
  Arrivals arrivals_;          // of the folder whose files are on
  ReplaceBatch replacements_;  // of the folder whose files are on
  RemovalBatch removals_;
  Failure first_;
  bool stopped_ = false;
  bool asks_ahead_ = true;     // a mount several questions at once
  TargetFolder remote_owner_;  // of the remote mount that has got a file last: who owns its files
  Outcome top_outcome_ = Outcome::kNone;
  std::int64_t last_tick_ = 0;
};

}  // namespace fileop
