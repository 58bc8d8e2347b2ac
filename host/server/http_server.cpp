#include "http_server.h"

#include <openssl/err.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "bounds.h"

namespace host {
namespace {

// The library's own backlog of 5 makes clients wait a second in a burst.
constexpr int kBacklog = 512;
constexpr int kRequestsPerConnection = 10000;

// The library's own choice lets a second server share the port, and requests go to either.
void TakePortAlone(int socket) {
  const int yes = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

// Of the library's two ways to compress, one works so hard that a long list of entries takes it
// seconds; the other takes milliseconds. The library chooses by what the client accepts.
void AcceptOnlyGzip(httplib::Headers* headers) {
  const auto accepted = headers->find("Accept-Encoding");
  if (accepted == headers->end()) return;
  const bool gzip = accepted->second.find("gzip") != std::string::npos;
  headers->erase("Accept-Encoding");
  if (gzip) headers->emplace("Accept-Encoding", "gzip");
}

std::string TlsReason() {
  std::array<char, 256> text{};
  ::ERR_error_string_n(::ERR_get_error(), text.data(), text.size());
  return text.data();
}

}  // namespace

HttpServer::HttpServer(const ConnectionLimits& limits, std::size_t threads) : limits_(limits) {
  set_socket_options(TakePortAlone);
  // The library takes the queue over.
  new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
  // Without it the body of an answer waits for the acknowledgement of its headers.
  set_tcp_nodelay(true);
  set_payload_max_length(kMaxBody);
}

bool HttpServer::UseTls(const std::string& certificate, const std::string& key, std::string* err) {
  tls_.reset(::SSL_CTX_new(::TLS_server_method()));
  const bool good = tls_ != nullptr &&
                    ::SSL_CTX_set_min_proto_version(tls_.get(), TLS1_2_VERSION) == 1 &&
                    ::SSL_CTX_use_certificate_chain_file(tls_.get(), certificate.c_str()) == 1 &&
                    ::SSL_CTX_use_PrivateKey_file(tls_.get(), key.c_str(), SSL_FILETYPE_PEM) == 1 &&
                    ::SSL_CTX_check_private_key(tls_.get()) == 1;
  if (!good) {
    *err =
        "cannot use the certificate " + certificate + " with the key " + key + ": " + TlsReason();
    return false;
  }
  ::SSL_CTX_set_mode(tls_.get(),
                     SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  return true;
}

int HttpServer::Bind(const std::string& address, int port) {
  errno = 0;
  const int bound = port == 0 ? bind_to_any_port(address) : bind_to_port(address, port) ? port : -1;
  if (bound < 0) {
    if (errno == 0) errno = EADDRNOTAVAIL;
    return -1;
  }
  // Listening again widens the queue.
  ::listen(svr_sock_, kBacklog);
  return bound;
}

bool HttpServer::process_and_close_socket(socket_t socket) {
  Connection connection(core::UniqueFd(socket), tls_.get(), limits_);
  bool good = connection.Greet();
  for (int left = kRequestsPerConnection; good && left > 0 && svr_sock_ != INVALID_SOCKET; --left) {
    if (!connection.AwaitRequest()) break;
    bool closed = false;
    good = process_request(connection, left == 1, closed,
                           [&](httplib::Request& request) {
                             connection.HeadIsRead();
                             AcceptOnlyGzip(&request.headers);
                           }) &&
           !closed;
  }
  return good;
}

}  // namespace host
