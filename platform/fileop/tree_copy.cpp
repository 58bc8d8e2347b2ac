#include "tree_copy.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "answers.h"
#include "conflict.h"
#include "core/error.h"
#include "metadata.h"
#include "pending_file.h"
#include "regular_file.h"
#include "temp_name.h"
#include "vfs/vfs.h"

namespace fileop {
namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Levels that keep their descriptors; the ones above them are opened again on
// the way back.
constexpr std::size_t kOpenLevels = 64;
constexpr std::int64_t kTickNanoseconds = 100'000'000;

std::string Below(const std::string& folder, const std::string& name) {
  return folder + "/" + name;
}

}  // namespace

int TreeCopy::Run(SourceFolder& from, const std::string& src_name, TargetFolder& to,
                  const std::string& dst_name, Outcome* outcome) {
  root_from_ = &from;
  root_to_ = &to;
  const bool rename = request_.removes && request_.options->moveFlag != 0;
  Enter({from, to, src_name, dst_name, rename});
  while (!levels_.empty()) {
    if (stopped_) {
      Leave();
    } else {
      Step();
    }
  }
  FlushRemovals();
  *outcome = top_outcome_;
  return first_ ? Report(first_) : 0;
}

void TreeCopy::Note(const Failure& failure) {
  // That it was stopped is what the caller hears of, whatever failed before.
  if (!first_ || failure.err == ECANCELED) first_ = failure;
  if (!stopped_ && IsServerLost(failure, root_from_->path, root_to_->path)) {
    // Each file that is left would wait for the server in vain.
    first_ = ServerLost();
    stopped_ = true;
  }
  if (stopped_ || StopsEverything(failure)) {
    stopped_ = true;
    return;
  }
  Failure lost = failure;
  lost.side = Side::kDestination;
  if (failure.side == Side::kUnknown && StopsEverything(lost) && !DestinationAnswers()) {
    stopped_ = true;
  }
}

bool TreeCopy::DestinationAnswers() const {
  const int fd = levels_.empty() ? root_to_->fd.get() : levels_.back()->to.fd.get();
  struct stat st;
  return ::fstatat(fd, ".", &st, 0) == 0 && ::faccessat(fd, ".", W_OK, AT_EACCESS) == 0;
}

bool TreeCopy::Tick() {
  if (request_.cancelled()) {
    Fail(ECANCELED, Side::kUnknown);
    Note(LatestFailure());
    return false;
  }
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  const std::int64_t at = now.tv_sec * 1'000'000'000LL + now.tv_nsec;
  if (at - last_tick_ > kTickNanoseconds) {
    last_tick_ = at;
    if (request_.options->progress != nullptr) request_.options->progress(0, 0);
  }
  return true;
}

void TreeCopy::Step() {
  Level& level = *levels_.back();
  if (!Tick()) return;
  if (level.lost) {
    EndOfListing(level);
  } else if (level.in_folders) {
    FolderStep(level);
  } else {
    FileStep(level);
  }
}

// What is sent to a server is not read here at all. A mount is asked by a few threads only: it may
// have a connection for each.
AheadPlace::How TreeCopy::HowAhead(Level& level) {
  using How = AheadPlace::How;
  if (level.rename || level.to.remote) return How::kNot;
  if (!level.from.remote) return How::kOpen;
  vfs::MountInfo mount;
  if (!vfs::FindByFullPath(level.from.path, &mount)) return How::kNot;
  constexpr int kMost = 3;     // threads that ask ahead
  constexpr int kReserve = 2;  // connections for the walk and for what it fetches
  const int most = mount.max_connections;
  const int threads = most == 0 ? kMost : std::clamp(most - kReserve, 0, kMost);
  const bool hooked = request_.args != nullptr && request_.args->behind;
  if (threads == 0 || !hooked || !asks_ahead_) return How::kNot;
  helper_.Widen(static_cast<std::size_t>(threads));
  const TAVOBEHINDHOOKS& hooks = *request_.args->behind;
  const bool fetches = hooks.fetches(level.from.path.c_str(), level.to.path.c_str(), 0) != 0;
  if (!fetches && hooks.ahead != nullptr) level.past_mount = hooks.ahead(level.from.path.c_str());
  return fetches ? How::kLook : How::kRead;
}

void TreeCopy::FileStep(Level& level) {
  Lookahead::Entry entry;
  if (!level.ahead_known) {
    level.ahead = HowAhead(level);
    level.ahead_known = true;
  }
  const AheadPlace place{level.from.fd.get(), &level.to, &request_.rules, level.ahead,
                         level.past_mount.get()};
  if (lookahead_.Next(place, &level.stream, &entry, &level.has_folders)) {
    if (lookahead_.Ending()) PrepareNext(level);
    if (waiting_ != nullptr && waiting_->finisher.Idle()) CloseWaiting();
    CarryFile(level, entry);
    return;
  }
  ListingEnded(level, errno);
}

void TreeCopy::FolderStep(Level& level) {
  DirStream::Entry entry;
  if (!level.stream.Next(level.from.fd.get(), &entry)) {
    ListingEnded(level, errno);
  } else if (IsFolder(level.from.fd.get(), entry.name, entry.type)) {
    Enter({level.from, level.to, entry.name, entry.name, level.rename});
  }
}

void TreeCopy::ListingEnded(Level& level, int error) {
  if (error != 0) {
    Fail(error, Side::kSource);
    Note(LatestFailure());
    level.kept = true;
  }
  EndOfListing(level);
}

void TreeCopy::EndOfListing(Level& level) {
  if (level.lost || level.in_folders || !level.has_folders) {
    Leave();
    return;
  }
  CloseWaiting();
  AwaitArrivals(level, 0);
  FlushReplacements(level);
  Publish(level);
  if (level.lost) {
    Leave();
    return;
  }
  // It comes with another descriptor.
  if (prepared_ != nullptr) prepared_->Await();
  level.in_folders = true;
  if (level.stream.Rewind(&level.from.fd) < 0) {
    Fail(errno, Side::kSource);
    Note(LatestFailure());
    level.kept = true;
    Leave();
  }
}

void TreeCopy::CarryFile(Level& level, const Lookahead::Entry& entry) {
  Job job{request_, level.from, entry.name, level.to, entry.name};
  job.free_names = !level.fresh;
  job.finisher = &level.finisher;
  if (!level.fresh && replacements_.Prepare(level.to) == 0) job.replacements = &replacements_;
  PrepareToStayBehind(level, job);
  if (entry.type == DT_REG) job.st.st_mode = S_IFREG;
  if (entry.file != nullptr) {
    entry.file->Await();
    if (entry.file->refused) {
      level.ahead = AheadPlace::How::kNot;
      asks_ahead_ = false;
      if (level.past_mount != nullptr) level.past_mount->GiveUp();
    }
    // What could not be opened ahead is tried again for its error.
    if (entry.file->fd.valid() && S_ISREG(entry.file->st.st_mode)) {
      job.src = std::move(entry.file->fd);
      job.st = entry.file->st;
      job.ahead = entry.file.get();
    } else if (entry.file->looked && S_ISREG(entry.file->st.st_mode)) {
      job.st = entry.file->st;
      job.unopened = job.may_stay_behind = true;
    }
  }
  int carried = CarryEntry(job, {level.rename, &links_});
  if (carried < 0 && job.may_stay_behind && LatestFailure().err == EEXIST) {
    job.may_stay_behind = job.name_is_free = false;
    carried = CarryEntry(job, {level.rename, &links_});
  }
  if (level.to.remote && level.to.owner_known) {
    remote_owner_.id = level.to.id;
    remote_owner_.owner_known = true;
    remote_owner_.owner = level.to.owner;
    remote_owner_.group = level.to.group;
  }
  if (carried < 0) {
    level.kept = true;
    Note(LatestFailure());
    return;
  }
  AfterFile(level, job);
}

// Several small files are on their way to a server at once. In a folder that this walk has made,
// the server is asked for each name when the file is about to get it, not before.
void TreeCopy::PrepareToStayBehind(Level& level, Job& job) {
  if (!level.to.remote || request_.args == nullptr || !request_.args->behind) return;
  const bool may_be_renamed = job.free_names && request_.options->newName != nullptr;
  if (may_be_renamed || arrivals_.MayCollide(job.to_name)) AwaitArrivals(level, 0);
  if (!level.to.owner_known && level.to.id.dev == remote_owner_.id.dev) {
    level.to.owner_known = remote_owner_.owner_known;
    level.to.owner = remote_owner_.owner;
    level.to.group = remote_owner_.group;
  }
  job.may_stay_behind = !may_be_renamed;
  job.name_is_free = level.fresh && job.may_stay_behind && level.to.owner_known;
}

void TreeCopy::AwaitArrivals(Level& level, std::size_t leave) {
  if (request_.args == nullptr || !request_.args->behind) return;
  arrivals_.Await(*request_.args->behind, leave, [&](Job& job, bool arrived) {
    if (!arrived) {
      CarryAgain(level, job);
    } else if (FinishArrived(job) < 0) {
      level.kept = true;
      Note(LatestFailure());
    } else {
      AfterFile(level, job);
    }
  });
}

// What did not arrive is carried in the ordinary way, which also tells why it fails.
void TreeCopy::CarryAgain(Level& level, Job& sent) {
  const Failure why = LatestFailure();
  const bool lost =
      stopped_ || request_.cancelled() || IsServerLost(why, root_from_->path, root_to_->path);
  Job job{request_, level.from, sent.name, level.to, sent.to_name};
  job.free_names = sent.free_names;
  sent.pending.reset();
  if (!lost && CarryEntry(job, {false, &links_}) == 0) {
    AfterFile(level, job);
    return;
  }
  level.kept = true;
  Note(lost ? why : LatestFailure());
}

// Waits for what other hands do for the folder.
void TreeCopy::Settle(Level& level) {
  AwaitArrivals(level, 0);
  for (const Finisher::Failed& failed : level.finisher.Settle()) {
    Note(failed.failure);
    level.kept = true;
    std::erase_if(level.staged, [&](const auto& staged) { return staged.first == failed.name; });
  }
}

void TreeCopy::FlushReplacements(Level& level) {
  replacements_.Flush([&](const std::string& name, const struct stat& st, const Failure& failure) {
    if (failure) {
      level.kept = true;
      Note(failure);
    } else if (request_.removes) {
      StageRemoval(level, name, st);
    }
  });
  if (removals_.Full()) FlushRemovals();
}

void TreeCopy::AfterFile(Level& level, Job& job) {
  switch (job.outcome) {
    case Outcome::kRenamed:
      ReportRename(job.src_path, job.dst_path);
      return;
    case Outcome::kBehind:
      arrivals_.Add(job);
      if (arrivals_.Full()) AwaitArrivals(level, Arrivals::kMost - 1);
      return;
    case Outcome::kWaiting:
      if (replacements_.Full()) FlushReplacements(level);
      return;
    case Outcome::kCopied:
      if (request_.removes) StageRemoval(level, job.name, job.st);
      break;
    default:
      level.kept = true;
      return;
  }
  if (level.to.unseen) {
    ++level.unseen_files;
    level.unseen_bytes += static_cast<unsigned long long>(job.st.st_size);
    if (level.DarkLongEnough()) Publish(level);
  } else if (removals_.Full()) {
    FlushRemovals();
  }
}

void TreeCopy::StageRemoval(Level& level, const std::string& name, const struct stat& st) {
  if (level.to.unseen) {
    level.staged.emplace_back(name, st);
    return;
  }
  removals_.Add(level.origin, name, st);
}

void TreeCopy::FlushRemovals() {
  const auto ignore = [](const std::string&, const Failure&) {};
  if (removals_.Flush(ignore) < 0) Note(LatestFailure());
}

void TreeCopy::ReportRename(const std::string& src, const std::string& dst) {
  const _TAVOCOPYARGSEX* args = request_.args;
  if (request_.options->progress == nullptr) return;
  unsigned long long size = 0;
  if (args != nullptr && args->dir_size != nullptr) size = args->dir_size(src.c_str(), dst.c_str());
  request_.options->progress(size, 0);
}

void TreeCopy::Enter(Place place) {
  Level* parent = levels_.empty() ? nullptr : levels_.back().get();
  auto level = std::make_unique<Level>(parent, &helper_);
  level->name = place.name;
  level->to_name = place.to_name;
  level->from.path = Below(place.from.path, place.name);
  level->from.fs_type = place.from.fs_type;
  level->from.remote = place.from.remote;
  level->to.fs_type = place.to.fs_type;
  level->to.remote = place.to.remote;
  if (OpenTarget(place, level.get()) < 0) {
    if (parent != nullptr) parent->kept = true;
    Note(LatestFailure());
    return;
  }
  if (!level->open) return;  // renamed as a whole
  if (levels_.empty()) {
    own_target_ = level->to.id;
    top_outcome_ = Outcome::kCopied;
  }
  levels_.push_back(std::move(level));
  if (levels_.size() > kOpenLevels) SuspendLevel(levels_[levels_.size() - kOpenLevels - 1].get());
}

int TreeCopy::OpenTarget(Place& place, Level* level) {
  // The source first: what cannot be read leaves no empty folder behind.
  if (OpenSource(place, level) < 0) return -1;
  if (DescribeSource(request_.removes, &level->from) < 0) return -1;
  if (!(level->from.id.dev == place.from.id.dev)) {
    level->from.fs_type = FsTypeOf(level->from.fd.get());
  }
  if (!levels_.empty() && level->from.id == own_target_) {
    return FailWith(core::kErrExists, EINVAL, Side::kSource);
  }
  level->rename = place.rename && level->from.id.dev == place.to.id.dev;
  if (place.rename) {
    const int renamed = RenameNoReplace(place.from.fd.get(), place.name.c_str(), place.to.fd.get(),
                                        place.to_name.c_str());
    if (renamed == 0) {
      if (levels_.empty()) top_outcome_ = Outcome::kRenamed;
      ReportRename(level->from.path, Below(place.to.path, place.to_name));
      return 0;
    }
    if (errno == EXDEV || errno == EBUSY)
      level->rename = false;
    else if (errno != EEXIST && errno != ENOTEMPTY)
      return Fail(errno, Side::kUnknown);
  }
  if (request_.removes) {
    if (place.from.removal_error != 0) return Fail(place.from.removal_error, Side::kSource);
    if (place.from.sticky && level->st.st_uid != ::geteuid()) return Fail(EPERM, Side::kSource);
    level->origin = std::make_shared<Origin>(Origin{level->from.path, level->from.id});
  }
  level->to.path = Below(place.to.path, place.to_name);
  level->to.fd.reset(::openat(place.to.fd.get(), place.to_name.c_str(), kOpenFolder));
  if (!level->to.fd) {
    if (errno == ENOTDIR || errno == ELOOP) {
      return FailWith(core::kErrFolderExpected, ENOTDIR, Side::kDestination);
    }
    if (errno != ENOENT) return Fail(errno, Side::kDestination);
    if (MakeFolder(place, level) < 0) return -1;
  }
  if (DescribeTarget(&level->to) < 0) return -1;
  if (level->to.id == level->from.id) return FailWith(core::kErrExists, EEXIST, Side::kUnknown);
  if (request_.removes && removals_.NeedsSync(level->to) < 0) return -1;
  if (!level->fresh) CleanLeftovers(level->to.fd.get());
  level->open = true;
  return 0;
}

int TreeCopy::OpenSource(Place& place, Level* level) {
  if (prepared_ != nullptr) {
    prepared_->Await();
    const std::shared_ptr<AheadFolder> prepared = std::move(prepared_);
    if (prepared->Is(place.from, place.name)) {
      level->from.fd = std::move(prepared->fd);
      level->st = prepared->st;
      level->stream = std::move(prepared->stream);
      return 0;
    }
  }
  level->from.fd.reset(::openat(place.from.fd.get(), place.name.c_str(), kOpenFolder));
  if (!level->from.fd) {
    return errno == ENOTDIR ? FailWith(core::kErrFolderExpected, errno, Side::kSource)
                            : Fail(errno, Side::kSource);
  }
  return ::fstat(level->from.fd.get(), &level->st) == 0 ? 0 : Fail(errno, Side::kSource);
}

// Has the folder that comes after the files of `level` opened: its first one, or the one beside it.
void TreeCopy::PrepareNext(const Level& level) {
  if (prepared_ != nullptr || level.ahead != AheadPlace::How::kOpen) return;
  const Level* parent = level.has_folders ? &level : level.above;
  if (parent == nullptr || !parent->open) return;
  const char* name =
      level.has_folders ? lookahead_.first_folder().c_str() : parent->stream.FolderInSight();
  if (name == nullptr) return;
  prepared_ = std::make_shared<AheadFolder>(&helper_, parent->from, name);
  if (helper_.Post(prepared_)) {
    helper_.Wake();
  } else {
    prepared_.reset();
  }
}

void TreeCopy::DropPrepared() {
  if (prepared_ == nullptr) return;
  prepared_->Await();
  prepared_.reset();
}

int TreeCopy::MakeFolder(Place& place, Level* level) {
  const int parent = place.to.fd.get();
  level->to.unseen = !place.to.remote;
  level->temp_name = level->to.unseen ? MakeTempName() : place.to_name;
  if (::mkdirat(parent, level->temp_name.c_str(), 0700) != 0) {
    return Fail(errno, Side::kDestination);
  }
  level->to.path = Below(place.to.path, level->temp_name);
  level->to.fd.reset(::openat(parent, level->temp_name.c_str(), kOpenFolder));
  if (!level->to.fd) return Fail(errno, Side::kDestination);
  level->fresh = true;
  return 0;
}

}  // namespace fileop
