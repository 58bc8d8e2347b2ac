// SFTP servers.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "server_cloud.h"
#include "sftp_channel.h"
#include "sftp_stream.h"

namespace TAVOCloud {

// An upload stands under a temporary name beside its target until the server has confirmed its
// size. A transfer whose connection breaks is taken up where it stopped, a bounded number of times.
class Sftp final : public ServerCloud {
 public:
  Sftp(const core::RemoteConfig& remote, const std::string& serverId);

  std::string Name() const override { return channel_.remote().name; }
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
  int MostConnections() const override { return channel_.remote().max_connections; }

 private:
  enum class Next { kDone, kFailed, kAgain };

  using ServerCloud::Fail;
  bool Fail(const SshOutcome& outcome);
  // One attempt's end: what to do, with the failure set when it is over. Waits before another one.
  Next Judge(const SshOutcome& outcome, Flow* flow, int attempt);

  std::vector<std::string> LeftoversIn(const std::string& folder) override;
  void RemoveLeftover(const std::string& path) override;

  SshOutcome RunOn(SftpType type, const std::string& path);
  SshOutcome RunRename(const std::string& from, const std::string& to, bool replace);
  SshOutcome Ask(const std::string& path, SftpAttributes* attributes);
  bool Publish(const std::string& temporary, const std::string& target, const Flow& flow);
  bool SettleRename(const SshOutcome& outcome, const std::string& temporary,
                    const std::string& target, const Flow& flow);
  bool Replace(const std::string& temporary, const std::string& target);
  void Discard(const std::string& temporary);

  SftpChannel channel_;
};

}  // namespace TAVOCloud
