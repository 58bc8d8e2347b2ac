// Servers of FTP and FTPS.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "connection.h"
#include "server_cloud.h"

namespace TAVOCloud {

// An upload stands under a temporary name beside its target until the server
// has confirmed its size. A transfer whose connection breaks is taken up where
// it stopped, a bounded number of times.
class FtpFamily final : public ServerCloud {
 public:
  FtpFamily(const core::RemoteConfig& remote, const std::string& serverId);

  std::string Name() const override { return connection_.remote().name; }
  bool Connect(std::string* err) override;
  bool IsIgnoredPath(const std::string& sourcePath) override;
  bool IsAcceptedSize(std::uint64_t bytes) override;
  int Kind() const override { return 1; }
  bool Stat(const std::string& serverPath, std::uint64_t* size, bool* folder) override;
  bool MakeFolder(const std::string& serverPath) override;
  bool Remove(const std::string& serverPath) override;
  bool Rename(const std::string& from, const std::string& to) override;
  bool Download(const std::string& serverPath, int fd, std::uint64_t size, ProgressFn progress,
                CancelFn cancel, ReadSizeFn readSize) override;
  bool Upload(const std::string& serverPath, int fd, std::uint64_t size, ProgressFn progress,
              CancelFn cancel, ReadSizeFn readSize) override;
  bool CopyOnServer(const std::string& from, const std::string& to) override;

 protected:
  std::unique_ptr<ServerCloud> Another() const override;
  int MostConnections() const override { return connection_.remote().max_connections; }

 private:
  enum class Next { kDone, kFailed, kAgain };

  // One attempt's end: what to do, with the failure set when it is over. Waits
  // before another attempt.
  Next Judge(const Outcome& outcome, Flow* flow, int attempt);
  using ServerCloud::Fail;
  bool Fail(const Outcome& outcome);

  std::vector<std::string> LeftoversIn(const std::string& folder) override;
  void RemoveLeftover(const std::string& path) override { (void)RemoveFile(path); }

  Outcome RunRename(const std::string& from, const std::string& to);
  Outcome RemoveFile(const std::string& path);
  bool Receive(const std::string& serverPath, Flow* flow);
  bool Send(const std::string& temporary, Flow* flow);
  bool FindRestart(const std::string& temporary, Flow* flow, std::uint64_t* offset);
  bool Confirm(const std::string& path, const Flow& flow);
  Outcome RunPublish(const std::string& temporary, const std::string& target);
  bool Publish(const std::string& temporary, const std::string& target, Flow* flow);
  bool SettleRename(const Outcome& outcome, const std::string& temporary, const std::string& target,
                    const Flow& flow);
  bool Replace(const std::string& temporary, const std::string& target);
  void Discard(const std::string& temporary, bool sent);

  Connection connection_;
};

}  // namespace TAVOCloud
