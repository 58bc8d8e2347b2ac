// An HTTP or HTTPS server with settings that suit short local requests.
#pragma once

#include <httplib.h>
#include <openssl/ssl.h>

#include <cstddef>
#include <memory>
#include <string>

#include "connection.h"

namespace host {

class HttpServer : public httplib::Server {
 public:
  // `threads`: how many connections are served at one time.
  HttpServer(const ConnectionLimits& limits, std::size_t threads);

  // Speaks TLS from now on. Both files are read here, once. False with words in *err.
  [[nodiscard]] bool UseTls(const std::string& certificate, const std::string& key,
                            std::string* err);

  // Returns the real port; negative with errno set on failure.
  int Bind(const std::string& address, int port);

 private:
  struct FreeTls {
    void operator()(SSL_CTX* tls) const { ::SSL_CTX_free(tls); }
  };

  bool process_and_close_socket(socket_t socket) override;

  ConnectionLimits limits_;
  std::unique_ptr<SSL_CTX, FreeTls> tls_;
};

}  // namespace host
