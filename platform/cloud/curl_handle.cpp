#include "curl_handle.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <thread>

#include "curl_flow.h"
#include "signal_guard.h"
#include "silent_servers.h"

namespace TAVOCloud {
namespace {

constexpr long kHurriedTimeout = 5;  // seconds
constexpr long kStallTimeout = 60;   // a server may take its time after it has got a file
constexpr std::chrono::seconds kUploadStallTimeout{30};  // but not in its middle
// After it has not answered in time.
constexpr long kSilentTimeout = 5;
constexpr long kHurriedSilentTimeout = 2;
constexpr long kPromptTimeout = 20;
constexpr long kSlowTimeout = 3600;  // a large file copied on the server
constexpr long kBufferSize = 512L << 10;
constexpr int kTick = 200;  // milliseconds; how late a stop may be noticed
constexpr int kMostIdleCalls = 3;

// Notices that a server takes no more of a file that it has not got to its end. Time that
// passes on this side, for a limit on bandwidth, does not count.
class StallWatch {
 public:
  explicit StallWatch(const Flow* flow) : flow_(flow) {}

  bool IsStalled() {
    if (flow_ == nullptr || flow_->moved() == flow_->size()) return false;
    const auto now = std::chrono::steady_clock::now();
    if (flow_->moved() != moved_) since_ = now;
    moved_ = flow_->moved();
    return now - since_ >= kUploadStallTimeout;
  }

 private:
  const Flow* flow_;
  std::uint64_t moved_ = 0;
  std::chrono::steady_clock::time_point since_ = std::chrono::steady_clock::now();
};

// The library's own start comes before the first handle, on whichever thread that is.
CURLM* NewDriver() {
  static const CURLcode started = curl_global_init(CURL_GLOBAL_DEFAULT);
  return started == CURLE_OK ? curl_multi_init() : nullptr;
}

}  // namespace

bool CurlList::Append(const std::string& line) {
  curl_slist* longer = curl_slist_append(list_.get(), line.c_str());
  if (longer == nullptr) return false;
  (void)list_.release();  // is part of the longer one
  list_.reset(longer);
  return true;
}

CurlHandle::CurlHandle(long connections) : driver_(NewDriver()), handle_(curl_easy_init()) {
  if (driver_ != nullptr) {
    (void)curl_multi_setopt(driver_.get(), CURLMOPT_MAXCONNECTS, connections);
  }
}

void CurlHandle::SetCommon(const std::string& url, const char* protocols, int connect_timeout,
                           bool slow) {
  options_taken_ = true;
  patience_ = connect_timeout;
  uploaded_ = nullptr;
  server_ = url.substr(0, url.find('/', url.find("://") + 3));
  const bool silent = SilentServers::Has(server_);
  const long most = silent ? kSilentTimeout : kSlowTimeout;
  quiet_limit_ = std::min(most, slow ? kSlowTimeout : kStallTimeout);
  Set(CURLOPT_URL, url.c_str());
  Set(CURLOPT_PROTOCOLS_STR, protocols);
  Set(CURLOPT_PATH_AS_IS, 1L);
  Set(CURLOPT_PROXY, "");  // the environment names no proxy for these servers
  Set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_BUFFERSIZE, kBufferSize);
  Set(CURLOPT_UPLOAD_BUFFERSIZE, kBufferSize);
  Set(CURLOPT_WRITEFUNCTION, &DropData);
  Set(CURLOPT_CONNECTTIMEOUT, std::min<long>(most, connect_timeout));  // with the login
  Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  Set(CURLOPT_LOW_SPEED_TIME, quiet_limit_);
  Set(CURLOPT_TCP_KEEPALIVE, 1L);
  const long hurried = silent ? kHurriedSilentTimeout : kHurriedTimeout;
  Set(CURLOPT_TIMEOUT, hurry_ ? hurried : 0L);
  Set(CURLOPT_NOPROGRESS, watched_ == nullptr ? 1L : 0L);
  Set(CURLOPT_XFERINFOFUNCTION, &AskForStop);
  Set(CURLOPT_XFERINFODATA, watched_);
}

void CurlHandle::SetTls(const std::string& ca_file) {
  Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  Set(CURLOPT_SSL_VERIFYPEER, 1L);
  Set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (!ca_file.empty()) Set(CURLOPT_CAINFO, ca_file.c_str());
}

void CurlHandle::SetPrompt() {
  quiet_limit_ = std::min(quiet_limit_, kPromptTimeout);
  Set(CURLOPT_LOW_SPEED_TIME, quiet_limit_);
}

void CurlHandle::SetUpload(Flow* flow) {
  uploaded_ = flow;
  Set(CURLOPT_UPLOAD, 1L);
  Set(CURLOPT_READFUNCTION, &GiveData);
  Set(CURLOPT_READDATA, flow);
  Set(CURLOPT_SEEKFUNCTION, &SeekData);
  Set(CURLOPT_SEEKDATA, flow);
  Set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(flow->size()));
}

// The library's own loop may sleep for most of a second before the data connection
// of a kept FTP connection, where it waits for nothing, or, with TLS, for the wrong
// socket. Here it is called again soon, and less often the longer nothing happens.
CURLcode CurlHandle::Drive() {
  if (curl_multi_add_handle(driver_.get(), handle_.get()) != CURLM_OK) return CURLE_OUT_OF_MEMORY;
  CURLcode code = CURLE_OUT_OF_MEMORY;
  int running = 1;
  int idle = 0;
  int patience = 1;
  StallWatch watch(uploaded_);
  // The library watches the time of a transfer only, not that of a question on a kept
  // connection. What passes in our own functions does not count.
  std::chrono::steady_clock::duration quiet{};
  while (curl_multi_perform(driver_.get(), &running) == CURLM_OK && running > 0) {
    if (watch.IsStalled() || quiet >= std::chrono::seconds(quiet_limit_)) {
      code = CURLE_OPERATION_TIMEDOUT;
      break;
    }
    int ready = 0;
    const auto asked = std::chrono::steady_clock::now();
    if (curl_multi_wait(driver_.get(), nullptr, 0, patience, &ready) != CURLM_OK) break;
    idle = ready == 0 ? idle + 1 : 0;
    patience = ready == 0 ? std::min(2 * patience, kTick) : 1;
    if (idle > kMostIdleCalls) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    quiet = ready == 0 ? quiet + (std::chrono::steady_clock::now() - asked) : quiet.zero();
  }
  int left = 0;
  const CURLMsg* message = curl_multi_info_read(driver_.get(), &left);
  if (message != nullptr && message->msg == CURLMSG_DONE) code = message->data.result;
  (void)curl_multi_remove_handle(driver_.get(), handle_.get());
  return code;
}

void CurlHandle::Perform(Outcome* outcome) {
  const NoBrokenPipeSignal guard;
  std::array<char, CURL_ERROR_SIZE> buffer{};
  Set(CURLOPT_ERRORBUFFER, buffer.data());
  outcome->code = Drive();
  // A hurried request says nothing: it asks for much in little time.
  const bool silent = outcome->code == CURLE_OPERATION_TIMEDOUT;
  if ((silent && !hurry_) || outcome->ok()) SilentServers::Note(server_, silent);
  Set(CURLOPT_ERRORBUFFER, static_cast<char*>(nullptr));
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &outcome->response);
  long number = 0;
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_OS_ERRNO, &number);
  outcome->os_error = static_cast<int>(number);
  (void)curl_easy_getinfo(handle_.get(), CURLINFO_NUM_CONNECTS, &number);
  outcome->fresh = number > 0;
  if (!outcome->words.empty()) return;  // who took the answer knows better
  outcome->words = buffer.data();
  if (outcome->words.empty()) outcome->words = curl_easy_strerror(outcome->code);
}

}  // namespace TAVOCloud
