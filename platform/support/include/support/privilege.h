// What a user may do, by the server's own rules and by the kernel's.
#pragma once

#include <string>
#include <vector>

// Rights of `userName` on the share of `sharePath`. 0 on success: *privType is
// 0 none, 1 read, 2 read and write; *privFlags is the sum of 1 (what is there may
// not be changed), 2 (may not delete) and 4 (may not read out). Non-zero with
// WfmLibGetErr set when there is no such share. The user's home area is their own.
int WfmLibGetPrivilege(const char* sharePath, const char* userName, const char* sessionId,
                       int* privType, int* privFlags);

// Asks the kernel, as the effective user, for access to `path` (ACLs included):
// `mode` is a sum of 4 read, 2 write, 1 search. Write access to a folder needs
// search too. 0 when allowed, else -1 with errno and WfmLibGetErr set.
int ACLAccess(const char* path, int mode);

namespace support {

struct ShareView {
  std::string name;
  bool writable = false;
  int restrictions = 0;
};

// The shares that the user may at least read, in configuration order, the home
// area first.
std::vector<ShareView> SharesOf(const std::string& user);

}  // namespace support
