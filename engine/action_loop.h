// One pass of a copy or move over one entry map.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/user.h"
#include "engine/search_lookup.h"
#include "webapi/handler.h"

namespace Fennox {

// What a pass does with its entries.
struct ActionOrder {
  const std::string& destSharePath;  // destination folder as the user names it
  const std::string& destFolder;     // absolute real path
  bool isDirMap;                     // folders and failed entries; else files
  int overwriteMode;                 // ConflictMode of the request
  _tag_action_type_ actionType;
  const std::string& destParam;     // share part of the destination
  const std::string& destCodePage;  // character set of names there
};

class ActionLoop {
 public:
  ActionLoop(FennoxMVCPHandler& handler, const ActionOrder& order);

  // Number of entries whose destination was taken, or -1 when the pass could
  // not start or was stopped.
  std::int64_t Run(EntryMap& entries);

 private:
  struct UserDeleter {
    void operator()(TAVOUSER* user) const { TAVOUserFree(user); }
  };
  // Keeps _copyArgs from the allocation to the end of the pass.
  struct CopyArgsOwner {
    CopyArgsOwner() = default;
    ~CopyArgsOwner();
    CopyArgsOwner(const CopyArgsOwner&) = delete;
    CopyArgsOwner& operator=(const CopyArgsOwner&) = delete;
  };

  [[nodiscard]] bool SetUp();
  [[nodiscard]] bool TakeUser();
  void FillOptions() const;
  void MakeCopyArgs() const;

  [[nodiscard]] bool CanMoveInThreads(const EntryMap& entries) const;
  // Moves what can be renamed and leaves the rest in `entries`.
  void MoveInThreads(EntryMap& entries);
  void TakeBack(MOVE_THREAD_INFO& record, EntryMap& entries);

  [[nodiscard]] bool CopyAll(EntryMap& entries);
  int CopyOne(const EntryMap::value_type& entry) const;
  [[nodiscard]] int FailureCode(const std::string& source) const;
  void Place(const EntryMap::value_type& entry);
  void PostProcess(EntryMap::iterator entry, int error, bool destExisted);

  FennoxMVCPHandler& handler_;
  const ActionOrder order_;
  const std::string login_;
  FileSearch::WfmSearchDBTaskMgr indexes_;
  // Released in the reverse order: the copy arguments, the index, the user.
  std::unique_ptr<TAVOUSER, UserDeleter> user_;
  SearchFollowUp search_;
  CopyArgsOwner copyArgs_;

  bool transferLog_ = false;
  std::string destPath_;  // of the entry in hand
  std::int64_t conflicts_ = 0;
};

}  // namespace Fennox
