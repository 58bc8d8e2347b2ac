#include "envelope.h"

#include <json/writer.h>

#include "core/utf8.h"
#include "webapi_runtime/api_response.h"

namespace host {

std::string RawJsonText(const Json::Value& value) {
  static const Json::StreamWriterBuilder kBuilder = [] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return builder;
  }();
  return Json::writeString(kBuilder, value);
}

std::string JsonText(const Json::Value& value) {
  std::string text = RawJsonText(value);
  // Bytes outside ASCII occur only inside strings, so the text can be mended as a whole.
  return core::IsUtf8(text) ? text : core::ReplaceInvalidUtf8(text);
}

std::string SuccessText(const Json::Value& data) {
  TAVO::APIResponse response;
  response.SetError(0, data);
  return JsonText(response.Envelope());
}

std::string FailureText(int code, const Json::Value& detail) {
  TAVO::APIResponse response;
  response.SetError(code, detail);
  return JsonText(response.Envelope());
}

std::string FailureWords(int code, const std::string& message) {
  Json::Value detail(Json::objectValue);
  detail["message"] = message;
  return FailureText(code, detail);
}

}  // namespace host
