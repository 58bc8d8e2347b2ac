// One folder of a tree while the walk is in it or below it.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dir_stream.h"
#include "finisher.h"
#include "folder.h"
#include "lookahead.h"
#include "removal.h"

namespace fileop {

struct Level {
  Level(Level* parent, Helper* helper) : above(parent), finisher(helper) {}

  Level* const above;  // null for the top folder
  SourceFolder from;
  TargetFolder to;
  DirStream stream;
  struct stat st {};        // the source folder before anything was read
  std::string name;         // in the source's parent
  std::string to_name;      // final name in the destination's parent
  std::string temp_name;    // name until then, while `to.unseen`
  bool fresh = false;       // made by this walk: gets the source's metadata
  bool rename = false;      // source and destination are one volume
  bool in_folders = false;  // files are done, folders are on
  bool has_folders = false;
  bool kept = false;         // something below stays at the source
  bool lost = false;         // the destination folder could not get its name
  bool ahead_known = false;  // `ahead` is
  AheadPlace::How ahead = AheadPlace::How::kNot;
  std::unique_ptr<TAVOAHEADSOURCE> past_mount;  // null: remote files are read through it
  bool open = false;                            // holds its descriptors
  std::shared_ptr<const Origin> origin;         // of a move
  // Sources copied into a folder that has no final name yet.
  std::vector<std::pair<std::string, struct stat>> staged;
  unsigned long long unseen_files = 0;
  unsigned long long unseen_bytes = 0;
  Finisher finisher;

  // A folder is not built in the dark beyond this: it bounds what a killed
  // process leaves behind, and the sources waiting for removal.
  bool DarkLongEnough() const {
    return to.unseen &&
           (unseen_files >= RemovalBatch::kMaxRecords || unseen_bytes >= RemovalBatch::kMaxBytes);
  }
};

// Gives up the descriptors of a level far above the walk.
void SuspendLevel(Level* level);

// Opens them again, from a folder right below or by path; the folders must be
// the same ones. Negative with the last error set.
[[nodiscard]] int ResumeLevel(const Level& below, Level* level);

}  // namespace fileop
