// An SSH connection to a server, logged in, with a channel for SFTP.
#pragma once

#include <libssh/callbacks.h>
#include <libssh/libssh.h>
#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "core/config.h"
#include "flow.h"
#include "ssh_outcome.h"

namespace TAVOCloud {

// Not for several threads at a time, and not beyond a fork.
class SshSession {
 public:
  using Clock = std::chrono::steady_clock;

  // Connects, checks the server's key and logs in, until `deadline` or until `flow`, which may be
  // null, is told to stop. Null with *outcome telling why there is no session.
  static std::unique_ptr<SshSession> Open(const core::RemoteConfig& remote, Flow* flow,
                                          Clock::time_point deadline, SshOutcome* outcome);
  ~SshSession();
  SshSession(const SshSession&) = delete;
  SshSession& operator=(const SshSession&) = delete;

  // False once the connection is lost; it says nothing to the server at its end then.
  [[nodiscard]] bool Stands();
  // Gives the server as much of the data as it takes now; how much, negative when it is lost.
  [[nodiscard]] ssize_t Write(std::string_view data);
  // Waits up to so long for the server. True when the connection may have moved something.
  bool Pump(std::chrono::milliseconds most);
  // What has come; the reader takes it away.
  std::string& input() { return input_; }
  std::string Words() const;

 private:
  struct Free {
    void operator()(ssh_session session) const { ssh_free(session); }
    void operator()(ssh_event event) const { ssh_event_free(event); }
    void operator()(ssh_key key) const { ssh_key_free(key); }
  };
  using Key = std::unique_ptr<ssh_key_struct, Free>;

  SshSession(Flow* flow, Clock::time_point deadline) : flow_(flow), deadline_(deadline) {}

  [[nodiscard]] bool Fail(SshOutcome::End end, const std::string& words);
  // The end of a step that the library could not do.
  [[nodiscard]] bool FailStep();
  [[nodiscard]] bool AwaitSocket();
  // Repeats a step of the library until it need not wait any more.
  template <typename Step>
  int Repeat(int again, Step step);
  template <typename Value>
  [[nodiscard]] bool Set(ssh_options_e option, const Value* value);

  [[nodiscard]] bool Prepare(const core::RemoteConfig& remote, int socket);
  [[nodiscard]] bool Greet(const core::RemoteConfig& remote);
  [[nodiscard]] bool CheckKey();
  [[nodiscard]] bool LogIn(const core::RemoteConfig& remote);
  int LogInByKey(const core::RemoteConfig& remote, const std::string& password);
  int LogInByPassword(const std::string& password);
  int AnswerQuestions(const std::string& password);
  [[nodiscard]] bool OpenChannel();

  Flow* flow_;  // until it is open, as is the next
  Clock::time_point deadline_;
  SshOutcome outcome_;
  ssh_channel_callbacks_struct callbacks_{};
  std::string input_;
  std::unique_ptr<ssh_session_struct, Free> session_;
  std::unique_ptr<ssh_event_struct, Free> event_;
  ssh_channel channel_ = nullptr;  // the session's
};

}  // namespace TAVOCloud
