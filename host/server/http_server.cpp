#include "http_server.h"

#include <sys/socket.h>

#include <cerrno>

#include "bounds.h"

namespace host {
namespace {

// Status requests may wait, and idle connections hold a thread for a while.
constexpr std::size_t kThreads = kMaxInFlight + 64;
constexpr int kBacklog = 512;
constexpr std::size_t kRequestsPerConnection = 10000;
constexpr int kKeepAliveSeconds = 5;
constexpr int kReadSeconds = 30;

class BacklogWidener {
 public:
  virtual ~BacklogWidener() = default;
  virtual void WidenBacklog() = 0;
};

// The library's own backlog of 5 makes clients wait a second in a burst. Listening again
// widens it.
template <typename Base>
class WideServer : public Base, public BacklogWidener {
 public:
  using Base::Base;
  void WidenBacklog() override { ::listen(this->svr_sock_, kBacklog); }
};

// The library's own choice lets a second server share the port, and requests go to either.
void TakePortAlone(int socket) {
  const int yes = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

void Tune(httplib::Server& server) {
  server.set_socket_options(TakePortAlone);
  // The library takes the queue over.
  server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
  // Without it the body of an answer waits for the acknowledgement of its headers.
  server.set_tcp_nodelay(true);
  server.set_keep_alive_max_count(kRequestsPerConnection);
  server.set_keep_alive_timeout(kKeepAliveSeconds);
  server.set_read_timeout(kReadSeconds);
  server.set_payload_max_length(kMaxBody);
}

}  // namespace

std::unique_ptr<httplib::Server> MakeHttpServer(const std::string& certificate,
                                                const std::string& key, std::string* err) {
  std::unique_ptr<httplib::Server> server;
  if (certificate.empty()) {
    server = std::make_unique<WideServer<httplib::Server>>();
  } else {
    server = std::make_unique<WideServer<httplib::SSLServer>>(certificate.c_str(), key.c_str());
  }
  if (!server->is_valid()) {
    *err = "cannot use the certificate " + certificate + " with the key " + key;
    return nullptr;
  }
  Tune(*server);
  return server;
}

int BindHttpServer(httplib::Server& server, const std::string& address, int port) {
  errno = 0;
  const int bound = port == 0                            ? server.bind_to_any_port(address)
                    : server.bind_to_port(address, port) ? port
                                                         : -1;
  if (bound < 0) {
    if (errno == 0) errno = EADDRNOTAVAIL;
    return -1;
  }
  if (auto* widener = dynamic_cast<BacklogWidener*>(&server)) widener->WidenBacklog();
  return bound;
}

}  // namespace host
