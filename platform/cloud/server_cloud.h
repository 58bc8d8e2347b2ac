// What the kinds of servers share.
#pragma once

#include <string>
#include <vector>

#include "cloud/cloud.h"
#include "failure.h"
#include "flow.h"
#include "leftovers.h"

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
  // Carries no data, only the order to stop (see StopWhen).
  Flow StopOnly() const { return {-1, 0, nullptr, cancel_, nullptr}; }
  // Begins an operation: whether the path may be sent at all.
  bool CheckPath(const std::string& path);
  // Removes, once for each folder, what uploads of ended processes have left beside the
  // path. Tries it only: errors are not told.
  void RemoveLeftoversBeside(const std::string& path);

 private:
  // Names of abandoned uploads in a folder, whose path ends with a slash. Asked once.
  virtual std::vector<std::string> LeftoversIn(const std::string& folder) = 0;
  virtual void RemoveLeftover(const std::string& path) = 0;

  const char* source_;
  SeenFolders seen_;
};

}  // namespace TAVOCloud
