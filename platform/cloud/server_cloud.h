// What the kinds of servers share.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cloud/cloud.h"
#include "crew.h"
#include "failure.h"
#include "flow.h"
#include "leftovers.h"

namespace TAVOCloud {

// Every Fail answers false, with errno and the last error set.
class ServerCloud : public Cloud {
 public:
  // See cloud/behind.h.
  void LetNextStayBehind();
  std::uint64_t last_behind() const { return last_behind_; }
  [[nodiscard]] bool AwaitBehind(std::uint64_t number);
  // For UploadFile and DownloadFile, before they carry the file themselves: true when it was
  // left behind. `file` has no descriptor of its own yet.
  [[nodiscard]] bool LeaveBehind(Crew::File file, int fd, ReadSizeFn readSize);
  // An object of the same kind for another connection; null when there is none.
  virtual std::unique_ptr<ServerCloud> Another() const { return nullptr; }
  // How many connections more may be opened beside this object's and the mount's.
  std::size_t SpareConnections() const;

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
  virtual int MostConnections() const { return 1; }
  // Whether uploads are of new files: they replace nothing, and bring their source's time along.
  bool sends_new_files() const { return sends_new_files_; }
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
  // Shared with the objects of the crew.
  std::shared_ptr<SeenFolders> seen_ = std::make_shared<SeenFolders>();
  bool may_stay_behind_ = false;
  bool sends_new_files_ = false;
  std::uint64_t last_behind_ = 0;
  std::unique_ptr<Crew> crew_;
};

}  // namespace TAVOCloud
