// Answers in JSON.
#pragma once

#include <httplib.h>

#include <string>

#include "envelope.h"

namespace host {

inline void Reply(httplib::Response& response, int status, const std::string& text) {
  response.status = status;
  response.set_content(text, "application/json");
}

inline void Refuse(httplib::Response& response, int status, int code, const std::string& message) {
  Reply(response, status, FailureWords(code, message));
}

}  // namespace host
