#include "webapi_runtime/api_response.h"

namespace TAVO {

bool APIResponse::SetError(int code, const Json::Value& data) {
  code_ = code;
  data_ = data;
  return true;
}

Json::Value APIResponse::Envelope() const {
  Json::Value envelope(Json::objectValue);
  envelope["success"] = code_ == 0;
  if (code_ == 0) {
    if (!data_.isNull()) envelope["data"] = data_;
    return envelope;
  }
  envelope["error"]["code"] = code_;
  if (!data_.isNull()) envelope["error"]["detail"] = data_;
  return envelope;
}

}  // namespace TAVO
