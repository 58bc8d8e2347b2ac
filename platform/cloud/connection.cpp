#include "connection.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <string_view>
#include <thread>
#include <utility>

#include "secret_file.h"
#include "server_path.h"
#include "signal_guard.h"

namespace TAVOCloud {
namespace {

constexpr long kHurriedTimeout = 5;
constexpr long kStallTimeout = 60;
constexpr long kReplyTimeout = 30;
constexpr long kBufferSize = 512L << 10;
constexpr int kTick = 200;  // milliseconds; how late a stop may be noticed
constexpr int kMostIdleCalls = 3;
constexpr int kImplicitTlsPort = 990;

using CommandList = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

std::size_t Discard(char* /*data*/, std::size_t /*one*/, std::size_t length, void* /*user*/) {
  return length;
}

// A listing tells all that is asked of it by beginning.
std::size_t EndAtOnce(char* /*data*/, std::size_t /*one*/, std::size_t /*length*/, void* began) {
  *static_cast<bool*>(began) = true;
  return 0;
}

std::size_t OnData(char* data, std::size_t /*one*/, std::size_t length, void* flow) {
  return static_cast<Flow*>(flow)->Put(data, length) ? length : 0;
}

std::size_t OnRoom(char* buffer, std::size_t one, std::size_t count, void* flow) {
  const ssize_t got = static_cast<Flow*>(flow)->Get(buffer, one * count);
  return got < 0 ? CURL_READFUNC_ABORT : static_cast<std::size_t>(got);
}

int OnSeek(void* flow, curl_off_t offset, int origin) {
  if (origin != SEEK_SET || offset < 0) return CURL_SEEKFUNC_FAIL;
  return static_cast<Flow*>(flow)->SeekTo(static_cast<std::uint64_t>(offset)) ? CURL_SEEKFUNC_OK
                                                                              : CURL_SEEKFUNC_FAIL;
}

int OnTick(void* flow, curl_off_t /*dl*/, curl_off_t /*dl*/, curl_off_t /*ul*/, curl_off_t /*ul*/) {
  return static_cast<Flow*>(flow)->IsCancelled() ? 1 : 0;
}

struct SizeReply {
  std::uint64_t wanted;
  bool right;
};

// Ends the request unless the wanted size is told before a rename begins.
std::size_t OnReply(char* line, std::size_t /*one*/, std::size_t length, void* user) {
  auto* reply = static_cast<SizeReply*>(user);
  const std::string_view text(line, length);
  if (text.substr(0, 4) == "213 ") {
    std::uint64_t told = 0;
    const auto parsed = std::from_chars(text.data() + 4, text.data() + text.size(), told);
    reply->right = parsed.ec == std::errc() && told == reply->wanted;
    return reply->right ? length : 0;
  }
  return text.substr(0, 3) == "350" && !reply->right ? 0 : length;
}

std::string HostInUrl(const core::RemoteConfig& remote) {
  const bool bare_ipv6 = remote.host.find(':') != std::string::npos && remote.host.front() != '[';
  std::string host = bare_ipv6 ? "[" + remote.host + "]" : remote.host;
  if (remote.port != 0) host += ":" + std::to_string(remote.port);
  return host;
}

// FTP paths begin at the login folder unless their first slash is encoded; on
// SFTP "/~/" would be the home folder.
std::string UrlOf(const core::RemoteConfig& remote, const std::string& path) {
  if (remote.protocol == "sftp") {
    const std::string start = path.compare(0, 3, "/~/") == 0 ? "/." : "";
    return "sftp://" + HostInUrl(remote) + start + PercentEncode(path);
  }
  const bool implicit = remote.protocol == "ftps" && remote.port == kImplicitTlsPort;
  return (implicit ? "ftps://" : "ftp://") + HostInUrl(remote) + "/%2F" +
         PercentEncode(path.substr(1));
}

}  // namespace

Connection::Connection(core::RemoteConfig remote)
    : remote_(std::move(remote)), driver_(curl_multi_init()), handle_(curl_easy_init()) {
  if (driver_ != nullptr) (void)curl_multi_setopt(driver_.get(), CURLMOPT_MAXCONNECTS, 1L);
}

template <typename Value>
void Connection::Set(CURLoption option, Value value) {
  if (curl_easy_setopt(handle_.get(), option, value) != CURLE_OK) options_taken_ = false;
}

bool Connection::PrepareLogin(std::string* err) {
  if (!have_password_ && !remote_.password_file.empty()) {
    if (!ReadSecret(remote_.password_file, &password_, err)) return false;
    have_password_ = true;
  }
  if (!remote_.user.empty()) Set(CURLOPT_USERNAME, remote_.user.c_str());
  if (IsSftp() && !remote_.key_file.empty()) {
    Set(CURLOPT_SSH_AUTH_TYPES, static_cast<long>(CURLSSH_AUTH_PUBLICKEY));
    if (key_.path().empty() && !key_.Open(remote_.key_file, err)) return false;
    Set(CURLOPT_SSH_PRIVATE_KEYFILE, key_.path().c_str());
    if (have_password_) Set(CURLOPT_KEYPASSWD, password_.c_str());
    return true;
  }
  Set(CURLOPT_SSH_AUTH_TYPES, static_cast<long>(CURLSSH_AUTH_PASSWORD | CURLSSH_AUTH_KEYBOARD));
  if (have_password_) Set(CURLOPT_PASSWORD, password_.c_str());
  return true;
}

bool Connection::PrepareSecurity(std::string* err) {
  if (IsSftp()) {
    // Without the file any host key would be taken.
    if (access(remote_.known_hosts.c_str(), R_OK) != 0) {
      *err = "known_hosts: " + (remote_.known_hosts.empty()
                                    ? "is needed for sftp"
                                    : remote_.known_hosts + ": " + std::strerror(errno));
      return false;
    }
    Set(CURLOPT_SSH_KNOWNHOSTS, remote_.known_hosts.c_str());
    return true;
  }
  if (remote_.protocol != "ftps") return true;
  Set(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
  // Servers ask that a data connection resumes the session of the control
  // connection. The library does that reliably up to TLS 1.2 only: later sessions
  // come in tickets for one use.
  Set(CURLOPT_SSLVERSION,
      static_cast<long>(CURL_SSLVERSION_TLSv1_2) | static_cast<long>(CURL_SSLVERSION_MAX_TLSv1_2));
  Set(CURLOPT_SSL_VERIFYPEER, 1L);
  Set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (!remote_.ca_file.empty()) Set(CURLOPT_CAINFO, remote_.ca_file.c_str());
  return true;
}

void Connection::PreparePatience() {
  Set(CURLOPT_CONNECTTIMEOUT, 15L);  // seconds, with the login
  Set(CURLOPT_SERVER_RESPONSE_TIMEOUT, kReplyTimeout);
  Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  Set(CURLOPT_LOW_SPEED_TIME, kStallTimeout);
  Set(CURLOPT_TCP_KEEPALIVE, 1L);
  Set(CURLOPT_TIMEOUT, hurry_ ? kHurriedTimeout : 0L);
  Set(CURLOPT_NOPROGRESS, watched_ == nullptr ? 1L : 0L);
  Set(CURLOPT_XFERINFOFUNCTION, &OnTick);
  Set(CURLOPT_XFERINFODATA, watched_);
}

bool Connection::Prepare(const std::string& path, std::string* err) {
  if (handle_ == nullptr || driver_ == nullptr) {
    *err = "out of memory";
    return false;
  }
  curl_easy_reset(handle_.get());  // keeps the connection
  options_taken_ = true;
  Set(CURLOPT_URL, UrlOf(remote_, path).c_str());
  Set(CURLOPT_PROTOCOLS_STR, IsSftp() ? "sftp" : "ftp,ftps");
  Set(CURLOPT_PATH_AS_IS, 1L);
  Set(CURLOPT_PROXY, "");  // the environment names no proxy for these servers
  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_FTP_FILEMETHOD, static_cast<long>(CURLFTPMETHOD_NOCWD));
  Set(CURLOPT_FTP_SKIP_PASV_IP, 1L);
  Set(CURLOPT_WRITEFUNCTION, &Discard);
  PreparePatience();
  if (!PrepareSecurity(err) || !PrepareLogin(err)) return false;
  // An option that was not taken might be the one that checks the server.
  if (!options_taken_) *err = "the transfer library lacks support for " + remote_.protocol;
  return options_taken_;
}

Outcome Connection::Unprepared(const std::string& err) {
  Outcome outcome;
  outcome.code = CURLE_LOGIN_DENIED;
  outcome.words = err;
  return outcome;
}

// The library's own loop may sleep for most of a second before the data connection
// of a kept FTP connection, where it waits for nothing, or, with TLS, for the wrong
// socket. Here it is called again soon, and less often the longer nothing happens.
CURLcode Connection::Drive() {
  if (curl_multi_add_handle(driver_.get(), handle_.get()) != CURLM_OK) return CURLE_OUT_OF_MEMORY;
  CURLcode code = CURLE_OUT_OF_MEMORY;
  int running = 1;
  int idle = 0;
  int patience = 1;
  while (curl_multi_perform(driver_.get(), &running) == CURLM_OK && running > 0) {
    int ready = 0;
    if (curl_multi_wait(driver_.get(), nullptr, 0, patience, &ready) != CURLM_OK) break;
    idle = ready == 0 ? idle + 1 : 0;
    patience = ready == 0 ? std::min(2 * patience, kTick) : 1;
    if (idle > kMostIdleCalls) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  int left = 0;
  const CURLMsg* message = curl_multi_info_read(driver_.get(), &left);
  if (message != nullptr && message->msg == CURLMSG_DONE) code = message->data.result;
  (void)curl_multi_remove_handle(driver_.get(), handle_.get());
  return code;
}

Outcome Connection::Perform() {
  const NoBrokenPipeSignal guard;
  std::string buffer(CURL_ERROR_SIZE, '\0');
  Set(CURLOPT_ERRORBUFFER, buffer.data());
  Outcome outcome;
  outcome.code = Drive();
  Set(CURLOPT_ERRORBUFFER, static_cast<char*>(nullptr));
  long number = 0;
  if (curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &number) == CURLE_OK) {
    outcome.response = number;
  }
  if (curl_easy_getinfo(handle_.get(), CURLINFO_OS_ERRNO, &number) == CURLE_OK) {
    outcome.os_error = static_cast<int>(number);
  }
  if (curl_easy_getinfo(handle_.get(), CURLINFO_NUM_CONNECTS, &number) == CURLE_OK) {
    outcome.fresh = number > 0;
  }
  outcome.words = buffer.c_str();
  if (outcome.words.empty()) outcome.words = curl_easy_strerror(outcome.code);
  return outcome;
}

Outcome Connection::Open() { return Run({}); }

Outcome Connection::RunPrepared(const std::vector<std::string>& commands) {
  CommandList list(nullptr, &curl_slist_free_all);
  for (const std::string& command : commands) {
    curl_slist* longer = curl_slist_append(list.get(), command.c_str());
    if (longer == nullptr) return Unprepared("out of memory");
    (void)list.release();  // is part of the longer one
    list.reset(longer);
  }
  Set(CURLOPT_NOBODY, 1L);
  Set(CURLOPT_QUOTE, list.get());
  Outcome outcome = Perform();
  Set(CURLOPT_QUOTE, static_cast<curl_slist*>(nullptr));
  return outcome;
}

Outcome Connection::Run(const std::vector<std::string>& commands) {
  std::string err;
  return Prepare("/", &err) ? RunPrepared(commands) : Unprepared(err);
}

Outcome Connection::RenameWhole(const std::string& from, const std::string& to, std::uint64_t size,
                                bool* whole) {
  std::string err;
  if (!Prepare("/", &err)) return Unprepared(err);
  SizeReply reply{size, false};
  Set(CURLOPT_HEADERFUNCTION, &OnReply);
  Set(CURLOPT_HEADERDATA, &reply);
  Outcome outcome = RunPrepared({"SIZE " + from, "RNFR " + from, "RNTO " + to});
  *whole = reply.right;
  return outcome;
}

Outcome Connection::Size(const std::string& path, std::uint64_t* size) {
  std::string err;
  if (!Prepare(path, &err)) return Unprepared(err);
  Set(CURLOPT_NOBODY, 1L);
  Outcome outcome = Perform();
  if (!outcome.ok()) return outcome;
  curl_off_t length = -1;
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  if (length < 0 && IsSftp()) length = 0;  // how the library tells of an empty file there
  if (length < 0) {
    outcome.code = CURLE_BAD_DOWNLOAD_RESUME;
    outcome.words = "the server tells no size";
  } else {
    *size = static_cast<std::uint64_t>(length);
  }
  return outcome;
}

Outcome Connection::Folder(const std::string& path) {
  if (!IsSftp()) return Run({"CWD " + path});
  std::string err;
  if (!Prepare(path.back() == '/' ? path : path + "/", &err)) return Unprepared(err);
  bool began = false;
  Set(CURLOPT_WRITEFUNCTION, &EndAtOnce);
  Set(CURLOPT_WRITEDATA, &began);
  Outcome outcome = Perform();
  if (began) outcome.code = CURLE_OK;
  return outcome;
}

Outcome Connection::Download(const std::string& path, std::uint64_t offset, Flow* flow) {
  std::string err;
  if (!Prepare(path, &err)) return Unprepared(err);
  Set(CURLOPT_WRITEFUNCTION, &OnData);
  Set(CURLOPT_WRITEDATA, flow);
  Set(CURLOPT_BUFFERSIZE, kBufferSize);
  Set(CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(offset));
  return Perform();
}

Outcome Connection::Upload(const std::string& path, std::uint64_t offset, Flow* flow) {
  std::string err;
  if (!Prepare(path, &err)) return Unprepared(err);
  Set(CURLOPT_UPLOAD, 1L);
  Set(CURLOPT_READFUNCTION, &OnRoom);
  Set(CURLOPT_READDATA, flow);
  Set(CURLOPT_SEEKFUNCTION, &OnSeek);
  Set(CURLOPT_SEEKDATA, flow);
  Set(CURLOPT_UPLOAD_BUFFERSIZE, kBufferSize);
  Set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(flow->size()));
  Set(CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(offset));
  return Perform();
}

}  // namespace TAVOCloud
