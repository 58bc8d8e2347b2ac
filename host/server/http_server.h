// An HTTP or HTTPS server with settings that suit short local requests.
#pragma once

#include <httplib.h>

#include <memory>
#include <string>

namespace host {

// With a certificate it speaks TLS. Null, with words in *err, when the certificate or
// the key cannot be used.
std::unique_ptr<httplib::Server> MakeHttpServer(const std::string& certificate,
                                                const std::string& key, std::string* err);

// Binds and returns the real port; negative with errno set on failure.
int BindHttpServer(httplib::Server& server, const std::string& address, int port);

}  // namespace host
