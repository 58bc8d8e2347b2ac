#include "drop_root.h"

#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "login_policy.h"

namespace host {
namespace {

bool ChangesAccount(const core::Config& config) {
  return ::geteuid() == 0 && HasSeveralUsers(config);
}

const passwd* FrontAccount(const core::Config& config, std::string* err) {
  const passwd* account = ::getpwnam(config.server.run_as.c_str());
  if (account == nullptr) {
    *err = "server.run_as: there is no account \"" + config.server.run_as + "\"";
    return nullptr;
  }
  if (account->pw_uid == 0) {
    *err = "server.run_as: the HTTP side must not run as root";
    return nullptr;
  }
  return account;
}

bool DropCapabilities() {
  // The kernel's last capability may be newer than the header's.
  for (unsigned long capability = 0; capability < 64; ++capability) {
    if (::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0 && errno != EINVAL) return false;
  }
  return true;
}

bool Become(const passwd& account) {
  return DropCapabilities() && ::setgroups(0, nullptr) == 0 &&
         ::setresgid(account.pw_gid, account.pw_gid, account.pw_gid) == 0 &&
         ::setresuid(account.pw_uid, account.pw_uid, account.pw_uid) == 0 &&
         // Other processes of the account must not read this one's memory.
         ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0;
}

}  // namespace

std::string PrepareFrontFolder(const core::Config& config, std::string* err) {
  std::string folder = config.server.state + "/front";
  uid_t uid = ::geteuid();
  gid_t gid = ::getegid();
  if (ChangesAccount(config)) {
    const passwd* account = FrontAccount(config, err);
    if (account == nullptr) return {};
    uid = account->pw_uid;
    gid = account->pw_gid;
  }
  struct stat st {};
  const bool fresh = ::mkdir(folder.c_str(), 0700) == 0;
  if ((!fresh && errno != EEXIST) ||
      (fresh && uid != ::geteuid() && ::lchown(folder.c_str(), uid, gid) != 0) ||
      ::lstat(folder.c_str(), &st) != 0) {
    *err = folder + ": " + ::strerror(errno);
    return {};
  }
  // Its contents are never given away: another account may have put links there.
  if (!S_ISDIR(st.st_mode) || st.st_uid != uid || (st.st_mode & 077) != 0) {
    *err = folder +
           ": is not a private folder of the account that the HTTP side runs as; remove "
           "it, and everyone logs in again";
    return {};
  }
  return folder;
}

bool GiveUpRights(const core::Config& config, std::string* err) {
  if (ChangesAccount(config)) {
    const passwd* account = FrontAccount(config, err);
    if (account == nullptr) return false;
    if (!Become(*account)) {
      *err = "cannot become " + config.server.run_as + ": " + ::strerror(errno);
      return false;
    }
    if (::setresuid(0, 0, 0) == 0) {
      *err = "root could be had back";
      return false;
    }
  }
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
    *err = std::string("cannot give up new rights: ") + ::strerror(errno);
    return false;
  }
  return true;
}

}  // namespace host
