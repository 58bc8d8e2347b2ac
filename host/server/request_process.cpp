#include "request_process.h"

#include <json/value.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <string>
#include <utility>

#include "bounds.h"
#include "call.h"
#include "core/config.h"
#include "core/user.h"
#include "envelope.h"
#include "frames.h"
#include "host_calls.h"
#include "login_policy.h"
#include "remote_access.h"
#include "support/errors.h"
#include "tasks/store.h"

namespace host {
namespace {

// Takes the parameters, of which there may be many, out of the call.
std::string CallPlugin(Call& call, const Plugin& plugin) {
  const APITableEntry* row = plugin.Find(call.api, call.version, call.method);
  if (row == nullptr) return FailureWords(WEBFM_UNKNOWN_METHOD, "there is no such method");
  TAVO::APIRequest request(TAVO::APIRequestData{call.api, call.method, call.version, call.user,
                                                call.session, call.language,
                                                std::move(call.params)});
  TAVO::APIResponse response;
  row->handler(&request, &response);
  return JsonText(response.Envelope());
}

// The answer, whatever the handler throws; *thrown then, and nobody knows what is left behind.
std::string AnswerTo(Call& call, const Plugin& plugin, bool* thrown) {
  *thrown = true;
  try {
    if (!MayServe(core::CurrentConfig(), call.user)) {
      return FailureWords(WEBFM_NO_PERMISSION, "the server does not act for this user");
    }
    // Who reads records needs no remote, nor its secrets in memory.
    if (!OnlyReadsRecords(call)) PrepareRemotesFor(call);
    std::string answer = call.api.empty() ? AnswerHostCall(call) : CallPlugin(call, plugin);
    *thrown = false;
    return answer;
  } catch (const Json::Exception& e) {
    // A parameter of a type that has no meaning for the method.
    return FailureWords(WEBFM_BAD_PARAMETER, e.what());
  } catch (const std::exception& e) {
    ::syslog(LOG_ERR, "%s failed: %s", call.method.c_str(), e.what());
    return FailureWords(WEBFM_FAILED, e.what());
  } catch (...) {
    ::syslog(LOG_ERR, "%s failed for an unknown reason", call.method.c_str());
    return FailureWords(WEBFM_FAILED, "unknown failure");
  }
}

// Answers one call. Ends the process unless it may serve further ones, which are then those
// of the user that is returned. `owner`: that user, when the process has served before.
std::string ServeCall(int connection, const std::string& text, const Plugin& plugin,
                      const std::string* owner) {
  // A handler that hangs is ended here; workers do not inherit the alarm.
  ::alarm(kRequestSeconds);
  const pid_t self = ::getpid();
  Call call;
  std::string err;
  bool unsound = true;
  const bool decoded = DecodeCall(text, &call, &err);
  if (owner != nullptr && (!decoded || call.user != *owner || !OnlyReadsRecords(call))) ::_exit(1);
  const bool readable = decoded && (call.body.empty() || AddMembers(call.body, &call.params, &err));
  std::string answer =
      readable ? AnswerTo(call, plugin, &unsound) : FailureWords(WEBFM_BAD_PARAMETER, err);
  answer += static_cast<char>(readable ? AnswerKind::kAnswer : AnswerKind::kUnreadable);
  // A worker that came back from the handler owns none of these descriptors.
  if (::getpid() != self) ::_exit(1);
  if (SendFrame(connection, answer, kTransferMs) != FrameStatus::kOk) ::_exit(1);
  // Who looks around may start a task next.
  if (!unsound && call.api.empty()) tasks::Prepare(call.user);
  if (unsound || !OnlyReadsRecords(call)) ::_exit(0);
  ::alarm(0);
  return call.user;
}

// Does once what every request needs, while nobody waits: memory of this process is
// touched, and calls into libraries are bound.
void WarmUp() {
  Call call;
  std::string err;
  call.params["path"].append("/");
  static_cast<void>(DecodeCall(EncodeCall(call), &call, &err));
  static_cast<void>(SuccessText(call.params));
  core::UniqueFd one;
  core::UniqueFd other;
  std::string text;
  if (MakeSocketPair(SOCK_STREAM, &one, &other) &&
      SendFrame(one.get(), err, kTransferMs) == FrameStatus::kOk) {
    static_cast<void>(ReceiveFrame(other.get(), kMaxRequestFrame, kTransferMs, &text));
  }
  uid_t uid = 0;
  gid_t gid = 0;
  static_cast<void>(TAVOUserGetUGID("root", &uid, &gid));
  tasks::WarmUp();
}

}  // namespace

void ServeRequest(core::UniqueFd connection, const Plugin& plugin) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(kKeptLifeSeconds);
  std::string text;
  if (ReceiveFrame(connection.get(), kMaxRequestFrame, kTransferMs, &text) != FrameStatus::kOk) {
    ::_exit(1);
  }
  const std::string user = ServeCall(connection.get(), text, plugin, nullptr);
  while (Clock::now() < end &&
         ReceiveFrame(connection.get(), kMaxRequestFrame, kKeptMs, &text) == FrameStatus::kOk) {
    static_cast<void>(ServeCall(connection.get(), text, plugin, &user));
  }
  ::_exit(0);
}

void WaitForRequest(core::UniqueFd channel, const Plugin& plugin) {
  WarmUp();
  while (true) {
    core::UniqueFd connection;
    switch (ReceiveDescriptor(channel.get(), &connection)) {
      case DescriptorStatus::kOk:
        channel.reset();
        ServeRequest(std::move(connection), plugin);
      case DescriptorStatus::kEnd:
        ::_exit(0);
      case DescriptorStatus::kError:
        if (errno != EINTR) ::_exit(1);
        break;
      case DescriptorStatus::kMalformed:
        break;
    }
  }
}

}  // namespace host
