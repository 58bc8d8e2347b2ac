#include "supervision.h"

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>

#include "core/config.h"
#include "support/errors.h"
#include "tasks/store.h"

namespace host {
namespace {

bool StateFolderStat(const std::string& user, struct stat* st) {
  const std::string folder = core::UserStateFolder(user);
  return !folder.empty() && ::lstat(folder.c_str(), st) == 0 && S_ISDIR(st->st_mode);
}

bool BecomeOwner(const struct stat& st) {
  if (::geteuid() != 0) return st.st_uid == ::geteuid();
  if (st.st_uid == 0) return true;
  return ::setgroups(0, nullptr) == 0 && ::setresgid(st.st_gid, st.st_gid, st.st_gid) == 0 &&
         ::setresuid(st.st_uid, st.st_uid, st.st_uid) == 0;
}

std::vector<std::string> UsersOwnedBy(uid_t uid) {
  std::vector<std::string> users = tasks::UsersWithStore();
  std::erase_if(users, [uid](const std::string& user) {
    struct stat st {};
    return !StateFolderStat(user, &st) || st.st_uid != uid;
  });
  return users;
}

}  // namespace

LookStatus LookAfterUser(const std::string& user) {
  struct stat st {};
  if (!StateFolderStat(user, &st)) return kNothingLeft;
  if (!BecomeOwner(st)) {
    ::syslog(LOG_ERR, "cannot become the owner of the records of %s: %s", user.c_str(),
             ::strerror(errno));
    return kLookFailed;
  }
  try {
    const int ended = tasks::EndRecordsOfDeadWorkers(user, 0, WEBFM_WORKER_DIED);
    if (ended > 0) {
      ::syslog(LOG_ERR, "%d task(s) of %s ended as failed: the worker is gone", ended,
               user.c_str());
    }
    const auto records = tasks::List(user);
    const bool left = std::any_of(records.begin(), records.end(),
                                  [](const tasks::Record& record) { return !record.finished; });
    return left ? kUnfinishedLeft : kNothingLeft;
  } catch (const std::exception& e) {
    ::syslog(LOG_ERR, "cannot look after the records of %s: %s", user.c_str(), e.what());
    return kLookFailed;
  }
}

bool BecomeOwnerOfState(const std::string& user) {
  struct stat st {};
  return StateFolderStat(user, &st) && BecomeOwner(st);
}

WorkerWatch::WorkerWatch(std::function<pid_t(const std::string&)> start_look)
    : start_look_(std::move(start_look)) {}

void WorkerWatch::LookAtEveryone(Clock::time_point now) {
  for (const std::string& user : tasks::UsersWithStore()) looks_[user].due = now;
}

void WorkerWatch::WorkerEnded(uid_t uid, bool clean, Clock::time_point now) {
  // One look serves all the workers that end properly within a second.
  const auto due = clean ? now + kAfterCleanEnd : now;
  for (const std::string& user : UsersOwnedBy(uid)) {
    Look& look = looks_[user];
    look.due = std::min(look.due, due);
    look.repeat = kFirstRepeat;
  }
}

bool WorkerWatch::LookEnded(pid_t pid, int wait_status, Clock::time_point now) {
  const auto found = std::find_if(looks_.begin(), looks_.end(),
                                  [pid](const auto& item) { return item.second.running == pid; });
  if (found == looks_.end()) return false;
  Look& look = found->second;
  look.running = 0;
  const bool done = WIFEXITED(wait_status) && WEXITSTATUS(wait_status) == kNothingLeft;
  if (!done) {
    look.due = std::min(look.due, now + look.repeat);
    look.repeat = std::min(look.repeat * 2, kLastRepeat);
  } else if (look.due == Clock::time_point::max()) {
    looks_.erase(found);
  }
  return true;
}

void WorkerWatch::StartDue(Clock::time_point now) {
  for (auto& [user, look] : looks_) {
    if (look.running != 0 || look.due > now) continue;
    const pid_t pid = start_look_(user);
    look.due = pid > 0 ? Clock::time_point::max() : now + kFirstRepeat;
    look.running = pid > 0 ? pid : 0;
  }
}

int WorkerWatch::TimeoutMs(Clock::time_point now) const {
  auto next = Clock::time_point::max();
  for (const auto& [user, look] : looks_) {
    if (look.running == 0) next = std::min(next, look.due);
  }
  if (next == Clock::time_point::max()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now);
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60000));
}

}  // namespace host
