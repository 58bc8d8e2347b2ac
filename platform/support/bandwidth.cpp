#include "support/bandwidth.h"

#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "core/config.h"
#include "token_bucket.h"

namespace {

// One copy runs in a worker at a time, on one thread.
struct Accounting {
  bool started = false;
  unsigned long long chunk = 0;
  std::unique_ptr<support::TokenBucket> bucket;  // null: no limit
};

Accounting& Current() {
  static Accounting accounting;
  return accounting;
}

struct Account {
  std::string name;
  gid_t gid = 0;
};

bool AccountOf(uid_t uid, Account* account) {
  std::vector<char> buffer(1024);
  struct passwd record {};
  struct passwd* found = nullptr;
  int result = 0;
  while ((result = getpwuid_r(uid, &record, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (result != 0 || !found) return false;
  *account = {record.pw_name, record.pw_gid};
  return true;
}

std::unique_ptr<support::TokenBucket> OpenBucket(uid_t uid, std::uint64_t rate) {
  Account account;
  if (!AccountOf(uid, &account)) return nullptr;
  const std::string folder = core::UserStateFolder(account.name);
  if (folder.empty() || !core::EnsureUserStateFolder(account.name, uid, account.gid)) {
    return nullptr;
  }
  return support::TokenBucket::Open(folder + "/bandwidth", rate);
}

}  // namespace

bool WfmlibBwInit(bool /*destIsVfs*/, bool /*srcIsVfs*/, unsigned int uid,
                  const char* /*folderName*/, unsigned long long chunk) {
  WfmlibBwEnd();
  if (chunk == 0) return false;
  Accounting next{true, chunk, nullptr};
  const std::uint64_t rate = core::CurrentConfig().bandwidth_default;
  if (rate > 0) {
    next.bucket = OpenBucket(uid, rate);
    if (!next.bucket) return false;
  }
  Current() = std::move(next);
  return true;
}

bool WfmlibBwRun(unsigned long long /*processed*/, unsigned long long bytes,
                 unsigned long long /*total*/, long long& granted) {
  Accounting& accounting = Current();
  if (!accounting.started) return false;
  unsigned long long want = bytes == 0 ? accounting.chunk : std::min(bytes, accounting.chunk);
  want = std::min<unsigned long long>(want, std::numeric_limits<long long>::max());
  granted = static_cast<long long>(accounting.bucket ? accounting.bucket->Take(want) : want);
  return true;
}

void WfmlibBwEnd() { Current() = Accounting(); }
