// The answer to one web-API request.
#pragma once

#include <json/value.h>

namespace TAVO {

class APIResponse {
 public:
  // Delivers the request's result: with code 0 `data` is the successful
  // answer, with any other code the error's detail. The last call wins.
  // Returns true.
  bool SetError(int code, const Json::Value& data);

  int code() const { return code_; }
  const Json::Value& data() const { return data_; }

  // {"success":true,"data":…} or {"success":false,"error":{"code":…,"detail":…}}.
  // "data" and "detail" are left out when null.
  Json::Value Envelope() const;

 private:
  int code_ = 0;
  Json::Value data_;
};

}  // namespace TAVO
