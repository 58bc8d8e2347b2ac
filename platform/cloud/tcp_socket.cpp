#include "tcp_socket.h"

#include <curl/curl.h>
#include <fcntl.h>

#include <array>
#include <memory>

#include "curl_flow.h"
#include "server_path.h"

namespace TAVOCloud {
namespace {

SshOutcome::End EndOf(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return SshOutcome::End::kNoAddress;
    case CURLE_OPERATION_TIMEDOUT:
      return SshOutcome::End::kSilent;
    case CURLE_ABORTED_BY_CALLBACK:
      return SshOutcome::End::kStopped;
    default:
      return SshOutcome::End::kNotReached;
  }
}

}  // namespace

SshOutcome ConnectTo(const std::string& host, int port, long seconds, Flow* flow,
                     core::UniqueFd* socket) {
  const std::unique_ptr<CURL, void (*)(CURL*)> handle(curl_easy_init(), curl_easy_cleanup);
  std::array<char, CURL_ERROR_SIZE> words{};
  const auto set = [&](CURLoption option, auto value) {
    (void)curl_easy_setopt(handle.get(), option, value);
  };
  if (handle == nullptr) return {SshOutcome::End::kNotReached, 0, 0, true, "out of memory"};
  // The scheme plays no part: nothing is sent.
  const std::string url = "http://" + HostAndPort(host, port);
  set(CURLOPT_URL, url.c_str());
  set(CURLOPT_CONNECT_ONLY, 1L);
  set(CURLOPT_PROXY, "");
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_TCP_KEEPALIVE, 1L);
  set(CURLOPT_CONNECTTIMEOUT, seconds);
  set(CURLOPT_ERRORBUFFER, words.data());
  set(CURLOPT_NOPROGRESS, flow == nullptr ? 1L : 0L);
  set(CURLOPT_XFERINFOFUNCTION, &AskForStop);
  set(CURLOPT_XFERINFODATA, flow);
  const CURLcode code = curl_easy_perform(handle.get());
  if (code != CURLE_OK) {
    long error = 0;
    (void)curl_easy_getinfo(handle.get(), CURLINFO_OS_ERRNO, &error);
    return {EndOf(code), 0, static_cast<int>(error), true,
            words[0] != '\0' ? words.data() : curl_easy_strerror(code)};
  }
  curl_socket_t connected = CURL_SOCKET_BAD;
  (void)curl_easy_getinfo(handle.get(), CURLINFO_ACTIVESOCKET, &connected);
  socket->reset(fcntl(connected, F_DUPFD_CLOEXEC, 0));  // the library closes its own
  if (!*socket) return {SshOutcome::End::kNotReached, 0, 0, true, "no socket"};
  return {};
}

}  // namespace TAVOCloud
