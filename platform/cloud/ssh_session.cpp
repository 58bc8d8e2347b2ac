#include "ssh_session.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "core/secret.h"
#include "secret_file.h"
#include "tcp_socket.h"

namespace TAVOCloud {
namespace {

constexpr int kTick = 200;  // milliseconds; how late a stop may be noticed
constexpr unsigned int kSshPort = 22;
constexpr int kMostRounds = 8;  // of questions in a login
// The fastest where the processor helps comes first. Modes that are known to be weak are missing.
constexpr const char* kCiphers =
    "aes128-gcm@openssh.com,aes256-gcm@openssh.com,chacha20-poly1305@openssh.com,"
    "aes128-ctr,aes192-ctr,aes256-ctr";

int TakeData(ssh_session /*session*/, ssh_channel /*channel*/, void* data, std::uint32_t length,
             int is_error, void* input) {
  if (is_error == 0) static_cast<std::string*>(input)->append(static_cast<char*>(data), length);
  return static_cast<int>(length);
}

std::string WithoutBrackets(const std::string& host) {
  return host.starts_with('[') && host.ends_with(']') ? host.substr(1, host.size() - 2) : host;
}

}  // namespace

std::unique_ptr<SshSession> SshSession::Open(const core::RemoteConfig& remote, Flow* flow,
                                             Clock::time_point deadline, SshOutcome* outcome) {
  std::unique_ptr<SshSession> made(new SshSession(flow, deadline));
  const bool open =
      made->Greet(remote) && made->CheckKey() && made->LogIn(remote) && made->OpenChannel();
  made->flow_ = nullptr;
  *outcome = std::move(made->outcome_);
  outcome->fresh = true;
  return open ? std::move(made) : nullptr;
}

SshSession::~SshSession() {
  if (session_ == nullptr) return;
  if (event_ != nullptr) (void)ssh_event_remove_session(event_.get(), session_.get());
  if (Stands()) {
    ssh_disconnect(session_.get());
  } else {
    ssh_silent_disconnect(session_.get());
  }
}

bool SshSession::Fail(SshOutcome::End end, const std::string& words) {
  if (outcome_.ok()) outcome_ = {end, 0, 0, true, words};
  return false;
}

bool SshSession::FailStep() {
  if (ssh_get_serverbanner(session_.get()) == nullptr) {
    return Fail(SshOutcome::End::kNoMore,
                "connection closed by a server that has not said who it is");
  }
  return Fail(SshOutcome::End::kLost, Words());
}

std::string SshSession::Words() const {
  const char* words = ssh_get_error(session_.get());
  return words == nullptr || *words == '\0' ? "the connection is lost" : words;
}

bool SshSession::AwaitSocket() {
  if (flow_ != nullptr && flow_->IsCancelled()) {
    return Fail(SshOutcome::End::kStopped, "stopped");
  }
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now());
  if (left.count() <= 0) return Fail(SshOutcome::End::kSilent, "timed out in the login");
  const bool sends = (ssh_get_poll_flags(session_.get()) & SSH_WRITE_PENDING) != 0;
  pollfd socket{ssh_get_fd(session_.get()), static_cast<short>(sends ? POLLIN | POLLOUT : POLLIN),
                0};
  (void)poll(&socket, 1, static_cast<int>(std::min<std::int64_t>(left.count(), kTick)));
  return true;
}

template <typename Step>
int SshSession::Repeat(int again, Step step) {
  for (;;) {
    const int result = step();
    if (result != again) return result;
    if (!AwaitSocket()) return SSH_ERROR;  // SSH_AUTH_ERROR, too
  }
}

template <typename Value>
bool SshSession::Set(ssh_options_e option, const Value* value) {
  return ssh_options_set(session_.get(), option, value) == SSH_OK ||
         Fail(SshOutcome::End::kNotLetIn, Words());
}

// Nothing counts but the configuration: no file of the user's or the machine's own is read.
bool SshSession::Prepare(const core::RemoteConfig& remote, int socket) {
  const std::string host = WithoutBrackets(remote.host);
  const unsigned int port = remote.port == 0 ? kSshPort : static_cast<unsigned>(remote.port);
  const bool no = false;
  session_.reset(ssh_new());
  if (session_ == nullptr) return Fail(SshOutcome::End::kNotReached, "out of memory");
  ssh_set_blocking(session_.get(), 0);
  return Set(SSH_OPTIONS_PROCESS_CONFIG, &no) && Set(SSH_OPTIONS_HOST, host.c_str()) &&
         Set(SSH_OPTIONS_PORT, &port) && Set(SSH_OPTIONS_SSH_DIR, "/nonexistent") &&
         Set(SSH_OPTIONS_GLOBAL_KNOWNHOSTS, "/dev/null") &&
         Set(SSH_OPTIONS_KNOWNHOSTS, remote.known_hosts.c_str()) &&
         (remote.user.empty() || Set(SSH_OPTIONS_USER, remote.user.c_str())) &&
         Set(SSH_OPTIONS_CIPHERS_C_S, kCiphers) && Set(SSH_OPTIONS_CIPHERS_S_C, kCiphers) &&
         Set(SSH_OPTIONS_FD, &socket);
}

bool SshSession::Greet(const core::RemoteConfig& remote) {
  // Without the file any host key would be taken.
  if (access(remote.known_hosts.c_str(), R_OK) != 0) {
    return Fail(SshOutcome::End::kNotLetIn,
                "known_hosts: " + (remote.known_hosts.empty()
                                       ? "is needed for sftp"
                                       : remote.known_hosts + ": " + std::strerror(errno)));
  }
  const auto left = std::chrono::duration_cast<std::chrono::seconds>(deadline_ - Clock::now());
  core::UniqueFd socket;
  outcome_ = ConnectTo(remote.host, remote.port == 0 ? static_cast<int>(kSshPort) : remote.port,
                       std::max<long>(left.count(), 1), flow_, &socket);
  if (!outcome_.ok() || !Prepare(remote, socket.get())) return false;
  (void)socket.release();  // the session's from here on
  return Repeat(SSH_AGAIN, [this] { return ssh_connect(session_.get()); }) == SSH_OK || FailStep();
}

bool SshSession::CheckKey() {
  switch (ssh_session_is_known_server(session_.get())) {
    case SSH_KNOWN_HOSTS_OK:
      return true;
    case SSH_KNOWN_HOSTS_CHANGED:
    case SSH_KNOWN_HOSTS_OTHER:
      return Fail(SshOutcome::End::kNotLetIn,
                  "host key verification failed: the server has another key");
    default:
      return Fail(SshOutcome::End::kNotLetIn, "host key verification failed: the key is not known");
  }
}

bool SshSession::LogIn(const core::RemoteConfig& remote) {
  std::string err;
  std::string password;
  if (!remote.password_file.empty() && !ReadSecret(remote.password_file, &password, &err)) {
    return Fail(SshOutcome::End::kNotLetIn, err);
  }
  const int result =
      remote.key_file.empty() ? LogInByPassword(password) : LogInByKey(remote, password);
  if (result == SSH_AUTH_SUCCESS) return true;
  if (result == SSH_AUTH_ERROR && !Stands()) return FailStep();
  return Fail(SshOutcome::End::kNotLetIn, "authentication failed: " + Words());
}

int SshSession::LogInByKey(const core::RemoteConfig& remote, const std::string& password) {
  std::string text;
  std::string err;
  if (!core::ReadSecretFile(remote.key_file, &text, &err)) {
    (void)Fail(SshOutcome::End::kNotLetIn, err);
    return SSH_AUTH_DENIED;
  }
  ssh_key read = nullptr;
  const int result = ssh_pki_import_privkey_base64(
      text.c_str(), password.empty() ? nullptr : password.c_str(), nullptr, nullptr, &read);
  const Key key(read);
  if (result != SSH_OK) {
    (void)Fail(SshOutcome::End::kNotLetIn,
               "authentication failed: " + remote.key_file + " cannot be read as a key");
    return SSH_AUTH_DENIED;
  }
  return Repeat(SSH_AUTH_AGAIN,
                [&] { return ssh_userauth_publickey(session_.get(), nullptr, key.get()); });
}

// Some servers take a password only as the answer to a question.
int SshSession::LogInByPassword(const std::string& password) {
  const int open =
      Repeat(SSH_AUTH_AGAIN, [this] { return ssh_userauth_none(session_.get(), nullptr); });
  if (open == SSH_AUTH_SUCCESS || open == SSH_AUTH_ERROR) return open;
  const auto methods = static_cast<unsigned>(ssh_userauth_list(session_.get(), nullptr));
  if ((methods & SSH_AUTH_METHOD_PASSWORD) != 0) {
    return Repeat(SSH_AUTH_AGAIN,
                  [&] { return ssh_userauth_password(session_.get(), nullptr, password.c_str()); });
  }
  if ((methods & SSH_AUTH_METHOD_INTERACTIVE) != 0) return AnswerQuestions(password);
  return open;
}

int SshSession::AnswerQuestions(const std::string& password) {
  for (int round = 0; round < kMostRounds; ++round) {
    const int result = Repeat(
        SSH_AUTH_AGAIN, [this] { return ssh_userauth_kbdint(session_.get(), nullptr, nullptr); });
    if (result != SSH_AUTH_INFO) return result;
    const int count = ssh_userauth_kbdint_getnprompts(session_.get());
    for (int i = 0; i < count; ++i) {
      char echo = 0;
      (void)ssh_userauth_kbdint_getprompt(session_.get(), static_cast<unsigned>(i), &echo);
      (void)ssh_userauth_kbdint_setanswer(session_.get(), static_cast<unsigned>(i),
                                          echo == 0 ? password.c_str() : "");
    }
  }
  return SSH_AUTH_DENIED;
}

bool SshSession::OpenChannel() {
  channel_ = ssh_channel_new(session_.get());
  event_.reset(ssh_event_new());
  if (channel_ == nullptr || event_ == nullptr) {
    return Fail(SshOutcome::End::kLost, "out of memory");
  }
  if (Repeat(SSH_AGAIN, [this] { return ssh_channel_open_session(channel_); }) != SSH_OK ||
      Repeat(SSH_AGAIN, [this] { return ssh_channel_request_sftp(channel_); }) != SSH_OK) {
    if (!Stands()) return FailStep();
    return Fail(SshOutcome::End::kNotLetIn, "no SFTP for this login: " + Words());
  }
  callbacks_.userdata = &input_;
  callbacks_.channel_data_function = &TakeData;
  ssh_callbacks_init(&callbacks_);
  return (ssh_set_channel_callbacks(channel_, &callbacks_) == SSH_OK &&
          ssh_event_add_session(event_.get(), session_.get()) == SSH_OK) ||
         Fail(SshOutcome::End::kLost, Words());
}

bool SshSession::Stands() {
  return ssh_is_connected(session_.get()) != 0 &&
         (channel_ == nullptr ||
          (ssh_channel_is_closed(channel_) == 0 && ssh_channel_is_eof(channel_) == 0));
}

ssize_t SshSession::Write(std::string_view data) {
  const int taken =
      ssh_channel_write(channel_, data.data(), static_cast<std::uint32_t>(data.size()));
  if (taken == SSH_ERROR) return -1;
  return std::max(taken, 0);  // or it is to be asked again
}

bool SshSession::Pump(std::chrono::milliseconds most) {
  const std::size_t before = input_.size();
  (void)ssh_event_dopoll(event_.get(), static_cast<int>(most.count()));
  return input_.size() != before;
}

}  // namespace TAVOCloud
