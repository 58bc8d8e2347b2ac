// Requests to an SFTP server and their answers, several at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "core/config.h"
#include "flow.h"
#include "sftp_packet.h"
#include "ssh_outcome.h"
#include "ssh_session.h"

namespace TAVOCloud {

// What a server can do.
struct SftpLimits {
  std::uint32_t read = 32U << 10U;  // bytes in one request; any server takes these
  std::uint32_t write = 32U << 10U;
  bool replaces = false;  // in a rename, on demand
};

// Keeps its session until that is lost. Not for several threads at a time. A server that did not
// answer in time is waited for only a few seconds, whoever in the process asks it, until it
// answers again.
class SftpChannel {
 public:
  // A number that belongs to a request.
  using Number = std::uint32_t;
  struct Reply {
    SftpType type = SftpType::kStatus;
    std::string_view fields;  // until the channel is used again, but for Begin and Post
  };

  explicit SftpChannel(core::RemoteConfig remote);

  const core::RemoteConfig& remote() const { return remote_; }
  const SftpLimits& limits() const { return limits_; }

  // Requests end when `flow` is told to stop; null: they do not.
  void Watch(Flow* flow) { flow_ = flow; }
  // From now on everything has to be over in a few seconds: for cleaning up after a stop.
  void Hurry(bool hurry);
  // How long an answer may take.
  void WaitFor(std::chrono::seconds quiet) { quiet_limit_ = quiet; }

  // Begins an operation: answers to earlier requests are of no interest any more. Logs in, if no
  // session stands.
  SshOutcome Open();
  // Adds a request, whose End is the caller's; its number.
  PacketWriter Begin(SftpType type, Number* number);
  // Adds a request whose fields `fill` writes.
  template <typename Fill>
  Number Post(SftpType type, const Fill& fill) {
    Number number = 0;
    PacketWriter writer = Begin(type, &number);
    fill(writer);
    writer.End();
    return number;
  }
  // Sends what the server takes now. A failure is told by the next wait.
  void Flush();
  // Bytes that it has not taken yet.
  std::size_t backlog() const { return requests_.size() - sent_; }

  // Wait for the answer to a request, sending everything before. `what` names it for people.
  SshOutcome Await(Number number, Reply* reply);
  SshOutcome AwaitStatus(Number number, const std::string& what);
  SshOutcome AwaitHandle(Number number, const std::string& what, std::string* handle);
  SshOutcome AwaitAttributes(Number number, const std::string& what, SftpAttributes* attributes);
  // The end that such an answer means when it is not of the type that was asked for.
  SshOutcome Unwanted(const Reply& reply, const std::string& what);

 private:
  using Clock = SshSession::Clock;

  std::chrono::seconds QuietLimit() const;
  SshOutcome Greet();
  SshOutcome LearnLimits();
  SshOutcome Step(Clock::duration* quiet);
  // The session is of no use any more.
  SshOutcome Drop(SshOutcome::End end, std::string words);

  core::RemoteConfig remote_;
  std::string server_;  // for SilentServers
  SftpLimits limits_;
  Flow* flow_ = nullptr;
  bool hurry_ = false;
  Clock::time_point hurry_until_;
  std::chrono::seconds quiet_limit_;
  bool fresh_ = false;
  std::unique_ptr<SshSession> session_;
  std::string requests_;  // those from sent_ on have not been sent
  std::size_t sent_ = 0;
  std::size_t taken_ = 0;  // of the session's input
  Number next_ = 1;
  Number oldest_ = 1;                    // whose answer is of interest
  std::map<Number, std::string> early_;  // answers that came before they were waited for
  std::size_t early_bytes_ = 0;          // in them
  std::string held_;                     // the one of them that was last asked for
};

}  // namespace TAVOCloud
