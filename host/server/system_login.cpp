#include "system_login.h"

#include <json/reader.h>
#include <json/value.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "bounds.h"
#include "core/config.h"
#include "envelope.h"
#include "frames.h"
#include "login_policy.h"

namespace host {
namespace {

constexpr std::size_t kMaxName = 256;
constexpr std::size_t kMaxQuestion = 16U << 10;
// No reason for a refusal shows in its time: they all take this long, or longer only when
// the account's own checks do.
constexpr std::chrono::milliseconds kRefusalTime{2000};

bool IsLoginName(const std::string& name) {
  return !name.empty() && name.size() <= kMaxName && name[0] != '-' && name[0] != '.' &&
         std::none_of(name.begin(), name.end(), [](char c) {
           const auto byte = static_cast<unsigned char>(c);
           return byte <= 0x20 || byte == 0x7F || c == '/' || c == ':';
         });
}

struct Conversation {
  const std::string* password;
  bool asked = false;
};

// Answers the one question for the password; a second question is for something that a
// login over HTTP does not have.
bool AnswerMessage(const pam_message& message, Conversation* state, pam_response* response) {
  switch (message.msg_style) {
    case PAM_PROMPT_ECHO_OFF:
      if (state->asked) return false;
      state->asked = true;
      response->resp = ::strdup(state->password->c_str());
      return response->resp != nullptr;
    case PAM_TEXT_INFO:
    case PAM_ERROR_MSG:
      return true;
    default:
      return false;
  }
}

void FreeResponses(int count, pam_response* responses) {
  for (int i = 0; i < count; ++i) {
    if (responses[i].resp == nullptr) continue;
    OPENSSL_cleanse(responses[i].resp, std::strlen(responses[i].resp));
    std::free(responses[i].resp);
  }
  std::free(responses);
}

// PAM frees the answers, so they come from malloc.
int Converse(int count, const pam_message** messages, pam_response** answers, void* data) {
  if (count <= 0 || count > PAM_MAX_NUM_MSG) return PAM_CONV_ERR;
  auto* state = static_cast<Conversation*>(data);
  auto* responses = static_cast<pam_response*>(
      std::calloc(static_cast<std::size_t>(count), sizeof(pam_response)));
  if (responses == nullptr) return PAM_BUF_ERR;
  for (int i = 0; i < count; ++i) {
    if (AnswerMessage(*messages[i], state, &responses[i])) continue;
    FreeResponses(count, responses);
    return PAM_CONV_ERR;
  }
  *answers = responses;
  return PAM_SUCCESS;
}

// PAM's own pause would show by its absence for whoever is refused before.
void NoPause(int /*status*/, unsigned /*micros*/, void* /*data*/) {}

class PamSession {
 public:
  PamSession(const core::LoginConfig& config, const std::string& name, const std::string& password)
      : state_{&password}, conversation_{Converse, &state_} {
    status_ = config.service_folder.empty()
                  ? ::pam_start(config.service.c_str(), name.c_str(), &conversation_, &handle_)
                  : ::pam_start_confdir(config.service.c_str(), name.c_str(), &conversation_,
                                        config.service_folder.c_str(), &handle_);
  }
  ~PamSession() {
    if (handle_ != nullptr) ::pam_end(handle_, status_);
  }
  PamSession(const PamSession&) = delete;
  PamSession& operator=(const PamSession&) = delete;

  // A PAM status.
  int Check(const std::string& address) {
    if (status_ != PAM_SUCCESS) return status_;
    // pam_set_item takes the function's address as an object's.
    ::pam_set_item(handle_, PAM_FAIL_DELAY, reinterpret_cast<const void*>(&NoPause));
    ::pam_set_item(handle_, PAM_RHOST, address.c_str());
    ::pam_set_item(handle_, PAM_TTY, "fennox");
    constexpr int kFlags = PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK;
    status_ = ::pam_authenticate(handle_, kFlags);
    if (status_ == PAM_SUCCESS) status_ = ::pam_acct_mgmt(handle_, kFlags);
    return status_;
  }

  // The name as PAM left it; empty when there is none.
  std::string Name() const {
    const void* name = nullptr;
    const bool known = ::pam_get_item(handle_, PAM_USER, &name) == PAM_SUCCESS && name != nullptr;
    return known ? static_cast<const char*>(name) : "";
  }

 private:
  Conversation state_;
  pam_conv conversation_;
  pam_handle_t* handle_ = nullptr;
  int status_ = PAM_SYSTEM_ERR;
};

// An account that may log in, under its own name; empty otherwise.
std::string AllowedName(const std::string& name) {
  const passwd* account = ::getpwnam(name.c_str());
  if (account == nullptr || !MayLogIn(core::CurrentConfig(), *account)) return {};
  return account->pw_name;
}

// Whatever a module says, a check that went wrong is a refusal like any other: some say
// "system error" for a wrong password.
LoginResult ResultOf(int status) {
  if (status == PAM_SUCCESS) return LoginResult::kGranted;
  return status == PAM_NEW_AUTHTOK_REQD ? LoginResult::kExpired : LoginResult::kDenied;
}

LoginAnswer CheckPassword(const std::string& name, const std::string& address,
                          const std::string& password) {
  // An unknown name may be a password typed in the wrong place, so it is not logged.
  const std::string known = IsLoginName(name) ? AllowedName(name) : "";
  if (known.empty() || password.find('\0') != std::string::npos) {
    ::syslog(LOG_AUTH | LOG_NOTICE, "refused a login from %s: no account that may log in",
             address.c_str());
    return {LoginResult::kDenied, ""};
  }
  PamSession session(core::CurrentConfig().login, known, password);
  const int status = session.Check(address);
  LoginAnswer answer{ResultOf(status), ""};
  if (answer.result == LoginResult::kGranted) answer.user = AllowedName(session.Name());
  if (answer.result == LoginResult::kGranted && answer.user.empty()) {
    answer.result = LoginResult::kDenied;
  }
  if (answer.result == LoginResult::kGranted) {
    ::syslog(LOG_AUTH | LOG_INFO, "%s logged in from %s", answer.user.c_str(), address.c_str());
  } else {
    ::syslog(LOG_AUTH | LOG_NOTICE, "refused a login of %s from %s: %s", known.c_str(),
             address.c_str(), ::pam_strerror(nullptr, status));
  }
  return answer;
}

bool ParseObject(const std::string& text, Json::Value* out) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  return reader->parse(text.data(), text.data() + text.size(), out, nullptr) && out->isObject();
}

}  // namespace

LoginAnswer AskLogin(int connection, const std::string& name, const std::string& address,
                     const SecretText& password) {
  Json::Value question(Json::objectValue);
  question["name"] = name;
  question["address"] = address;
  std::string text;
  Json::Value value;
  if (SendFrame(connection, RawJsonText(question), kTransferMs) != FrameStatus::kOk ||
      SendFrame(connection, password.get(), kTransferMs) != FrameStatus::kOk ||
      ReceiveFrame(connection, kMaxQuestion, kLoginAnswerMs, &text) != FrameStatus::kOk ||
      !ParseObject(text, &value) || !value["result"].isInt()) {
    return {};
  }
  return {static_cast<LoginResult>(value["result"].asInt()), value["user"].asString()};
}

void ServeLogin(core::UniqueFd connection) {
  const auto begin = std::chrono::steady_clock::now();
  // A module that hangs is ended here.
  ::alarm(kLoginSeconds);
  std::string text;
  Json::Value question;
  SecretText password;
  if (ReceiveFrame(connection.get(), kMaxQuestion, kTransferMs, &text) != FrameStatus::kOk ||
      ReceiveFrame(connection.get(), kMaxQuestion, kTransferMs, password.out()) !=
          FrameStatus::kOk ||
      !ParseObject(text, &question) || !question["name"].isString() ||
      !question["address"].isString()) {
    ::_exit(1);
  }
  const LoginAnswer answer =
      CheckPassword(question["name"].asString(), question["address"].asString(), password.get());
  Wipe(password.out());
  if (answer.result != LoginResult::kGranted) std::this_thread::sleep_until(begin + kRefusalTime);
  Json::Value value(Json::objectValue);
  value["result"] = static_cast<int>(answer.result);
  value["user"] = answer.user;
  static_cast<void>(SendFrame(connection.get(), RawJsonText(value), kTransferMs));
  ::_exit(0);
}

}  // namespace host
