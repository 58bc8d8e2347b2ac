#include "request_process.h"

#include <json/value.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <string>

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

namespace host {
namespace {

std::string CallPlugin(const Call& call, const Plugin& plugin) {
  const APITableEntry* row = plugin.Find(call.api, call.version, call.method);
  if (row == nullptr) return FailureWords(WEBFM_UNKNOWN_METHOD, "there is no such method");
  TAVO::APIRequest request(TAVO::APIRequestData{call.api, call.method, call.version, call.user,
                                                call.session, call.language, call.params});
  TAVO::APIResponse response;
  row->handler(&request, &response);
  return JsonText(response.Envelope());
}

// The answer, whatever the handler throws.
std::string AnswerTo(const Call& call, const Plugin& plugin) {
  try {
    if (!MayServe(core::CurrentConfig(), call.user)) {
      return FailureWords(WEBFM_NO_PERMISSION, "the server does not act for this user");
    }
    PrepareRemotesFor(call);
    return call.api.empty() ? AnswerHostCall(call) : CallPlugin(call, plugin);
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
}

}  // namespace

void ServeRequest(core::UniqueFd connection, const Plugin& plugin) {
  // A handler that hangs is ended here; workers do not inherit the alarm.
  ::alarm(kRequestSeconds);
  const pid_t self = ::getpid();
  std::string text;
  if (ReceiveFrame(connection.get(), kMaxRequestFrame, kTransferMs, &text) != FrameStatus::kOk) {
    ::_exit(1);
  }
  Call call;
  std::string err;
  const std::string answer = DecodeCall(text, &call, &err)
                                 ? AnswerTo(call, plugin)
                                 : FailureWords(WEBFM_BAD_PARAMETER, "unreadable request: " + err);
  // A worker that came back from the handler owns none of these descriptors.
  if (::getpid() != self) ::_exit(1);
  const auto sent = SendFrame(connection.get(), answer, kTransferMs);
  ::_exit(sent == FrameStatus::kOk ? 0 : 1);
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
