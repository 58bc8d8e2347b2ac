// What the kinds of servers share.
#pragma once

#include <string>

#include "cloud/cloud.h"
#include "failure.h"
#include "flow.h"

namespace TAVOCloud {

// Every Fail answers false, with errno and the last error set.
class ServerCloud : public Cloud {
 protected:
  // `source` names the kind in its log lines.
  ServerCloud(const std::string& serverId, const char* source);

  bool Fail(int system, int core);
  // Also tells the log, and GetErrorCode.
  bool Fail(const Failure& failure, const std::string& words);
  // For what failed on this machine.
  bool FailLocally(const Flow& flow);
  // Begins an operation: whether the path may be sent at all.
  bool CheckPath(const std::string& path);

 private:
  const char* source_;
};

}  // namespace TAVOCloud
