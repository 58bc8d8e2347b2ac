#include "envelope.h"

#include <json/writer.h>

#include <cstddef>

#include "webapi_runtime/api_response.h"

namespace host {
namespace {

bool IsContinuation(unsigned char byte) { return (byte & 0xC0U) == 0x80U; }

// Length of the UTF-8 character at `at`, 0 when there is none (overlong forms,
// surrogates and values past U+10FFFF included).
std::size_t CharacterLength(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return 1;
  std::size_t length = 0;
  if (first >= 0xC2 && first <= 0xDF) length = 2;
  if (first >= 0xE0 && first <= 0xEF) length = 3;
  if (first >= 0xF0 && first <= 0xF4) length = 4;
  if (length == 0 || text.size() - at < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if (!IsContinuation(byte(i))) return 0;
  }
  const unsigned char second = byte(1);
  const bool bad = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                   (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
  return bad ? 0 : length;
}

}  // namespace

bool IsUtf8(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = CharacterLength(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

std::string WithReplacements(const std::string& text) {
  std::string out;
  out.reserve(text.size() + 16);
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = CharacterLength(text, at);
    if (length == 0) {
      out += "\xEF\xBF\xBD";
      ++at;
    } else {
      out.append(text, at, length);
      at += length;
    }
  }
  return out;
}

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
  return IsUtf8(text) ? text : WithReplacements(text);
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
